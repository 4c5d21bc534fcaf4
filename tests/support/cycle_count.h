// How long a test that goes round and round goes on.
#ifndef IXFS_TESTS_CYCLE_COUNT_H
#define IXFS_TESTS_CYCLE_COUNT_H

#include <algorithm>
#include <cstdlib>

// Returns that many cycles, or so many times as many as the environment's IXFS_TEST_FACTOR says.
inline int cycle_count(int usual)
{
    const char* const factor = std::getenv("IXFS_TEST_FACTOR");
    return factor == nullptr ? usual : usual * std::max(1, std::atoi(factor));
}

#endif
