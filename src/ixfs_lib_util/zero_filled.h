// Memory of the records that the C interface hands out.
#ifndef IXFS_ZERO_FILLED_H
#define IXFS_ZERO_FILLED_H

#include <cstddef>
#include <cstdlib>
#include <new>

// Base of a record whose memory comes from calloc, as that of every record of the interface:
//
//     auto* const record = new (std::nothrow) Record{};
//
// gives a zero-filled record, or null with errno set, and `delete record` frees it.
struct ZeroFilled {
    static void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept
    {
        return std::calloc(1, size);
    }
    static void operator delete(void* memory) noexcept { std::free(memory); }
    static void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept
    {
        std::free(memory);
    }
};

#endif
