// Who works in a mount.
#ifndef IXFSCTL_MOUNT_USERS_H
#define IXFSCTL_MOUNT_USERS_H

#include "processes.h"

#include <optional>
#include <string>

// A process of this mount namespace that has its working directory, its root, its program, an open
// file or a mapped one at or below `path`; nothing if there is none that this user may see. Looks
// into /proc alone, never at the mount itself.
std::optional<Process> find_user_of(const std::string& path);

// A process that has one of these on a file system, by way of whichever mount, also of another
// namespace; nothing if there is none.
std::optional<Process> find_user_of_device(const std::string& device);

// A process of another mount namespace in which something is mounted on this directory, which is
// below the mount base: there the mount would go with the directory. Nothing if there is none.
std::optional<Process> find_user_elsewhere(const std::string& directory);

#endif
