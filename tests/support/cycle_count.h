// How long a test that goes round and round goes on.
#ifndef IXFS_TESTS_CYCLE_COUNT_H
#define IXFS_TESTS_CYCLE_COUNT_H

#include <algorithm>
#include <cstdlib>

// Returns `full`, divided by the environment's IXFS_TEST_DIVISOR, which is set for builds that
// sanitizers slow down and where valgrind does.
inline int cycle_count(int full)
{
    const char* const divisor = std::getenv("IXFS_TEST_DIVISOR");
    return divisor == nullptr ? full : std::max(1, full / std::max(1, std::atoi(divisor)));
}

#endif
