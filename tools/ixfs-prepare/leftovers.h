// What a preparation leaves on the host, and how to clean it.
#ifndef IXFS_PREPARE_LEFTOVERS_H
#define IXFS_PREPARE_LEFTOVERS_H

#include "phase.h"
#include "records.h"
#include "request.h"

#include <string>
#include <sys/types.h>
#include <vector>

// The mounts of a preparation's helper that are there. One that came while nobody looked counts,
// too, unless another process of this host could have made it; one whose place another's took at the
// unmount does not count, if another process can still take it off. Throws what read_mount_table
// throws.
std::vector<Mount> mounts_left(const OwnMounts& own);

// Such as "media1 is still mounted on /usr/... (type tmpfs, source tmpfs); to unmount it: ...".
std::string describe_mounts_left(const std::vector<Mount>& mounts, const std::string& server);

// The helper of a worker that has ended without a result, if it still runs: such as "the helper of
// media1 still runs, and may still mount: PID ...". Else "".
std::string describe_helpers_left(pid_t worker, const std::string& server);

// For a worker that has just been killed: all that it left, a helper that still runs included, one
// a line and without a newline at the end, and how to clean it.
std::string describe_given_up(pid_t worker, const Request& request, const Phase& phase,
                              const OwnMounts& own);

#endif
