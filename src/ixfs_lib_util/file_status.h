// What the kernel says of a file, itself and not what a symbolic link leads to.
#ifndef IXFS_FILE_STATUS_H
#define IXFS_FILE_STATUS_H

#include <optional>
#include <sys/stat.h>

// Nothing where the kernel does not say.
using FileStatus = std::optional<struct stat>;

FileStatus status_of(int folder, const char* name); // errno tells why there is none
FileStatus status_of(int open_file);

// Returns 0 if this process may read the file, else -1 and errno. A symbolic link counts as
// readable. Also in a sandbox that refuses with EPERM what it does not know.
int readable(int folder, const char* name);

bool is_regular(const struct stat& status);

// The errno with which something is refused that is no regular file.
int error_of_type(const struct stat& status);

// Whether two are one file, under one name or two. No where that is not known.
bool is_same_file(const FileStatus& one, const FileStatus& other);

#endif
