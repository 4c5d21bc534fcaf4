// Whether a directory is the root of a mounted file system. Such a directory is never deleted, as
// it may be a backup.
#ifndef IXFS_MOUNT_ROOT_H
#define IXFS_MOUNT_ROOT_H

enum class MountRoot { no, yes, unknown };

// Looks at what a name stands for, and opens nothing: a server that hangs is not asked. `no` also
// when the name stands for nothing. `unknown` when the kernel cannot tell, as before Linux 5.8, or
// the look fails. By the time of a later call the name may stand for something else.
//
// folder  an open directory, or AT_FDCWD
// flags   0, or AT_SYMLINK_NOFOLLOW
//
// Logs nothing.
MountRoot mount_root(int folder, const char* name, int flags);

// Whether a path that cannot be opened, for this reason, certainly leads to no mount: a deletion by
// it would fail as well. All other errors, such as that of a dead server, say nothing about it.
bool leads_nowhere(int error);

// Looks at an open directory. Where the kernel does not tell, the mount table decides; `unknown`
// when that fails, too. Logs nothing.
MountRoot mount_root(int directory);

#endif
