// How long a test that goes round and round goes on.
#ifndef IXFS_TESTS_CYCLE_COUNT_H
#define IXFS_TESTS_CYCLE_COUNT_H

#include <algorithm>
#include <cstdlib>

// What the environment's IXFS_TEST_DIVISOR says, which is set where sanitizers or valgrind slow all
// down; else 1.
inline int cycle_divisor()
{
    const char* const divisor = std::getenv("IXFS_TEST_DIVISOR");
    return divisor == nullptr ? 1 : std::max(1, std::atoi(divisor));
}

// Returns `full`, divided by that.
inline int cycle_count(int full)
{
    return std::max(1, full / cycle_divisor());
}

#endif
