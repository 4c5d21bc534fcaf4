// The semaphore set that ACE makes for a process mutex.
#ifndef IXFS_TESTS_PROCESS_MUTEX_SET_H
#define IXFS_TESTS_PROCESS_MUTEX_SET_H

// Its semaphores, by their number.
namespace process_mutex_set
{

inline constexpr unsigned short guard = 0; // not 0 while a process opens or closes the mutex
inline constexpr unsigned short users = 1; // 0 until the first one has made the set ready
inline constexpr unsigned short lock = 2;  // 1 while nobody holds the mutex

} // namespace process_mutex_set

#endif
