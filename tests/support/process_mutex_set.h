// The semaphore set that ACE makes for a process mutex.
#ifndef IXFS_TESTS_PROCESS_MUTEX_SET_H
#define IXFS_TESTS_PROCESS_MUTEX_SET_H

#include "process_state.h"

#include <array>
#include <vector>

#include <sys/sem.h>

// Its semaphores, by their number.
namespace process_mutex_set
{

inline constexpr unsigned short guard = 0; // not 0 while a process opens or closes the mutex
inline constexpr unsigned short users = 1; // 0 until the first one has made the set ready
inline constexpr unsigned short lock = 2;  // 1 while nobody holds the mutex

// The values of the three, by their number.
using Values = std::array<int, 3>;

// Those of every set of the IPC namespace.
inline std::vector<Values> values_of_all()
{
    std::vector<Values> values;
    for (const SemaphoreSet& set : semaphore_sets()) {
        values.push_back({semctl(set.id, guard, GETVAL), semctl(set.id, users, GETVAL),
                          semctl(set.id, lock, GETVAL)});
    }
    return values;
}

} // namespace process_mutex_set

#endif
