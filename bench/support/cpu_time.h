// Clocks, in seconds.
#ifndef IXFS_BENCH_CPU_TIME_H
#define IXFS_BENCH_CPU_TIME_H

#include <ctime>

inline double seconds_of(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// What this process has computed, with all its threads, without its children.
inline double cpu_seconds()
{
    return seconds_of(CLOCK_PROCESS_CPUTIME_ID);
}

inline double wall_seconds()
{
    return seconds_of(CLOCK_MONOTONIC);
}

#endif
