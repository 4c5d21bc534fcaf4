// Watching a mount: the validation thread.
#ifndef IXFS_MOUNT_VALIDATION_H
#define IXFS_MOUNT_VALIDATION_H

#include "ixfs.h"

// Gives a mounted record its stop event and its validation thread. A thread or event that cannot be
// made is logged under `tag`, and the mount goes unwatched.
void start_mount_validation(_ixfs_control_t* handle, const char* tag, _ixfs_mount_t* record);

#endif
