// Memory of the records that the C interface hands out.
#ifndef IXFS_ZERO_FILLED_H
#define IXFS_ZERO_FILLED_H

#include <cstddef>
#include <cstdlib>

// Base of a record whose memory comes from calloc, as that of every record of the interface. It
// never throws: `new Record{}` gives a zero-filled record, or null with errno telling why not.
struct ZeroFilled {
    static void* operator new(std::size_t size) noexcept { return std::calloc(1, size); }
    static void operator delete(void* memory) noexcept { std::free(memory); }
};

#endif
