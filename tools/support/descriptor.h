// An open file descriptor that is closed with its object.
#ifndef IXFS_TOOLS_DESCRIPTOR_H
#define IXFS_TOOLS_DESCRIPTOR_H

#include <unistd.h>
#include <utility>

class Descriptor
{
public:
    Descriptor() = default;
    explicit Descriptor(int number) : number_(number) {} // takes it over; -1 for none
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept
    {
        close();
        number_ = std::exchange(other.number_, -1);
        return *this;
    }
    ~Descriptor() { close(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

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
