// Memory that a process really has.
#ifndef IXFS_BENCH_TOUCHED_MEMORY_H
#define IXFS_BENCH_TOUCHED_MEMORY_H

#include <cstddef>
#include <new>
#include <sys/mman.h>

// Each page of it was written to, and is a small one, so that the kernel has an entry in the
// process's page tables for it.
class TouchedMemory
{
public:
    explicit TouchedMemory(std::size_t size)
        : size_(size), memory_(mmap(nullptr, size, PROT_READ | PROT_WRITE,
                                    MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0))
    {
        if (memory_ == MAP_FAILED)
            throw std::bad_alloc();
        constexpr std::size_t page = 4096;
        madvise(memory_, size_, MADV_NOHUGEPAGE);
        for (std::size_t i = 0; i < size_; i += page)
            static_cast<volatile char*>(memory_)[i] = 1;
    }
    ~TouchedMemory() { munmap(memory_, size_); }
    TouchedMemory(const TouchedMemory&) = delete;
    TouchedMemory& operator=(const TouchedMemory&) = delete;

private:
    std::size_t size_;
    void* memory_;
};

#endif
