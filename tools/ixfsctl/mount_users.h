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

#endif
