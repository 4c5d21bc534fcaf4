// Memory that runs short for one object.
#ifndef IXFS_TESTS_MEMORY_SHORTAGE_H
#define IXFS_TESTS_MEMORY_SHORTAGE_H

#include "interpose.h"

#include <string>

// Refuses every allocation of this thread that is of exactly that size, which tells objects apart
// however they are made. Holds on_allocation. Any number of hits, which are counted.
class MemoryShortage
{
public:
    explicit MemoryShortage(std::size_t size) : size_(size) {}

    // For copies of the text, in whatever kind of memory.
    static MemoryShortage for_copies_of(const std::string& text)
    {
        return MemoryShortage(text.size() + 1);
    }

    MemoryShortage(const MemoryShortage&) = delete;
    MemoryShortage& operator=(const MemoryShortage&) = delete;

    int hits() const { return hits_; }

private:
    std::size_t size_;
    int hits_ = 0;
    decltype(interpose::on_allocation)::Hook allocation_ =
        interpose::on_allocation([this](std::size_t size) -> std::optional<void*> {
            if (size != size_)
                return std::nullopt;
            ++hits_;
            errno = ENOMEM;
            return nullptr;
        });
};

#endif
