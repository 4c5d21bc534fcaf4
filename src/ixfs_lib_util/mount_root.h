// Whether a directory is the root of a mounted file system. Such a directory is never deleted, as
// it may be a backup.
#ifndef IXFS_MOUNT_ROOT_H
#define IXFS_MOUNT_ROOT_H

enum class MountRoot { no, yes, unknown };

// `no` also when the path names nothing. `unknown` when the kernel cannot tell, as before Linux
// 5.8, or the look fails. Logs nothing.
MountRoot mount_root(const char* path);

#endif
