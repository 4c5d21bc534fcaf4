// Whether a directory is the root of a mounted file system. What is, is never deleted: it may be a
// backup.
#ifndef IXFS_MOUNT_ROOT_H
#define IXFS_MOUNT_ROOT_H

enum class MountRoot { no, yes, unknown };

// `no` also where the path leads nowhere, so that there is nothing to be deleted by it; `unknown`
// where the kernel cannot tell, as before Linux 5.8, or the look fails. Logs nothing.
MountRoot mount_root(const char* path);

#endif
