// A file descriptor that is closed with its object.
#ifndef IXFS_TOOLS_OPEN_DESCRIPTOR_H
#define IXFS_TOOLS_OPEN_DESCRIPTOR_H

#include <unistd.h>
#include <utility>

class OpenDescriptor
{
public:
    OpenDescriptor() = default;

    // Takes what open and its like return, also -1 for none.
    explicit OpenDescriptor(int number) : number_(number) {}
    ~OpenDescriptor() { close(); }
    OpenDescriptor(OpenDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    OpenDescriptor& operator=(OpenDescriptor&& other) noexcept
    {
        close();
        number_ = std::exchange(other.number_, -1);
        return *this;
    }
    OpenDescriptor(const OpenDescriptor&) = delete;
    OpenDescriptor& operator=(const OpenDescriptor&) = delete;

    bool is_open() const { return number_ != -1; }
    int number() const { return number_; }
    void close() noexcept
    {
        if (is_open())
            ::close(std::exchange(number_, -1));
    }

private:
    int number_ = -1;
};

#endif
