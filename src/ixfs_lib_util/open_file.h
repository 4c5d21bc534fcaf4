// A file or directory that the library has open.
#ifndef IXFS_OPEN_FILE_H
#define IXFS_OPEN_FILE_H

#include <cerrno>
#include <unistd.h>
#include <utility>

// Owns a file descriptor and closes it. Keeps errno when it does: what failed before the closing is
// still to be told.
class OpenFile
{
public:
    OpenFile() = default;
    explicit OpenFile(int descriptor) : descriptor_(descriptor) {}
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    OpenFile(OpenFile&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    OpenFile& operator=(OpenFile&& other) noexcept
    {
        std::swap(descriptor_, other.descriptor_);
        return *this;
    }
    ~OpenFile() { close(); }

    bool is_open() const { return descriptor_ != -1; }
    int descriptor() const { return descriptor_; }

    // Hands the descriptor to somebody else who closes it.
    int release() { return std::exchange(descriptor_, -1); }

    void close()
    {
        if (!is_open())
            return;
        const int error = errno;
        ::close(release());
        errno = error;
    }

private:
    int descriptor_ = -1; // -1: nothing is open
};

#endif
