#include "file_status.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

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

int readable(int folder, const char* name)
{
    const int result = faccessat(folder, name, R_OK, AT_SYMLINK_NOFOLLOW);
    if (result == 0 || errno != EPERM)
        return result;
    const FileStatus status = status_of(folder, name);
    if (!status || S_ISLNK(status->st_mode))
        return status ? 0 : -1;
    // The C library's function would make the refused call again.
    return static_cast<int>(syscall(SYS_faccessat, folder, name, R_OK));
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
