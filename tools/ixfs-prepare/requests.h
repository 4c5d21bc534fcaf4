// All that the program was asked to do, complete and checked.
#ifndef IXFS_PREPARE_REQUESTS_H
#define IXFS_PREPARE_REQUESTS_H

#include "options.h"
#include "request.h"

#include <vector>

// One request for the command line's VM, or one for each line of --from. Reads the credentials, the
// list of disks and the list of VMs, and checks all of them as the library would. Throws UsageError
// that names the place; it never holds a credential. Nothing is mounted.
std::vector<Request> read_requests(const Options& options);

#endif
