// A file descriptor with an owner.
#ifndef FAULTFS_UNIQUE_FD_H
#define FAULTFS_UNIQUE_FD_H

#include <utility>

#include <unistd.h>

namespace faultfs
{

class UniqueFd
{
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : fd_(fd) {}
    UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~UniqueFd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ != -1; }
    int release() { return std::exchange(fd_, -1); }

    void reset()
    {
        if (fd_ != -1)
            ::close(std::exchange(fd_, -1));
    }

private:
    int fd_ = -1;
};

} // namespace faultfs

#endif
