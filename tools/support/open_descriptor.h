// A file descriptor that is closed with its object.
#ifndef IXFS_TOOLS_OPEN_DESCRIPTOR_H
#define IXFS_TOOLS_OPEN_DESCRIPTOR_H

#include <unistd.h>
#include <utility>

class OpenDescriptor
{
public:
    // Takes what open and its like return, also -1 for none.
    explicit OpenDescriptor(int number) : number_(number) {}
    ~OpenDescriptor()
    {
        if (is_open())
            close(number_);
    }
    OpenDescriptor(OpenDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    OpenDescriptor(const OpenDescriptor&) = delete;
    OpenDescriptor& operator=(const OpenDescriptor&) = delete;
    OpenDescriptor& operator=(OpenDescriptor&&) = delete;

    bool is_open() const { return number_ != -1; }
    int number() const { return number_; }

private:
    int number_;
};

#endif
