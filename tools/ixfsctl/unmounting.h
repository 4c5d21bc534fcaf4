// Changes below the mount base that nothing mounted and no symbolic link leads astray.
#ifndef IXFSCTL_UNMOUNTING_H
#define IXFSCTL_UNMOUNTING_H

#include "mount_table.h"

#include <string>

// Takes off `mount`, the topmost one on its point. If that answers nothing, lets the calls fail that
// hang in it. Returns 0 or the error number; EBUSY if somebody works in it, also by way of another
// mount of it, ETIMEDOUT if it hangs all the same.
int unmount_top(const Mount& mount);

// Removes a directory below the mount base, and those above it, up to the mount base, as far as they
// are empty. Returns 0 or the error number for the directory itself.
int remove_empty_directory(const std::string& path);

#endif
