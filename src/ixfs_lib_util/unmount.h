// What is left to do where the helper did not unmount.
#ifndef IXFS_UNMOUNT_H
#define IXFS_UNMOUNT_H

#include "ixfs.h"

struct _ixfs_mount_t;

extern "C" {
// Records a failed unmount: unmounts the record's mount point locally by force and removes the
// directory (see ixfs_unmount), where it has one; deletes the record, leaves the handle without a
// mount and sets the last status. `record` may be null; else it must be the handle's. With an
// inherited handle it only deletes the record. Tag "_ixfs_umount()". The handle's thread.
IXFS_API void _ixfs_no_unmount(_ixfs_control_t* handle, _ixfs_mount_t* record, ec_status status);
}

#endif
