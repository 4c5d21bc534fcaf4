#include "file_lock.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <system_error>
#include <unistd.h>

FileLock::FileLock(const std::filesystem::path& file, int open_flags, int lock_operation)
    : descriptor_(open(file.c_str(), open_flags | O_CLOEXEC, 0644))
{
    if (descriptor_ < 0) {
        if (errno != ENOENT)
            throw std::system_error(errno, std::generic_category(), file.string());
        return;
    }
    held_ = flock(descriptor_, lock_operation) == 0;
    if (!held_ && errno != EWOULDBLOCK) {
        const int error = errno;
        close(descriptor_);
        throw std::system_error(error, std::generic_category(), file.string());
    }
}

FileLock::~FileLock()
{
    if (descriptor_ >= 0)
        close(descriptor_);
}
