#include "file_status.h"

#include <cerrno>
#include <fcntl.h>

FileStatus status_of(int folder, const char* name)
{
    struct stat status {
    };
    if (fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0)
        return std::nullopt;
    return status;
}

FileStatus status_of(int open_file)
{
    struct stat status {
    };
    if (fstat(open_file, &status) != 0)
        return std::nullopt;
    return status;
}

bool is_regular(const struct stat& status)
{
    return S_ISREG(status.st_mode);
}

int error_of_type(const struct stat& status)
{
    if (S_ISLNK(status.st_mode))
        return ELOOP;
    return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
}

bool is_same_file(const FileStatus& one, const FileStatus& other)
{
    return one && other && one->st_dev == other->st_dev && one->st_ino == other->st_ino;
}
