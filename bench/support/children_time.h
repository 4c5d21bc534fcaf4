// Clocks that count what child processes compute, in seconds. Of a child all counts as soon as it
// was waited for.
#ifndef IXFS_BENCH_CHILDREN_TIME_H
#define IXFS_BENCH_CHILDREN_TIME_H

#include "cpu_time.h"

#include <sys/resource.h>

inline double cpu_seconds_of_children()
{
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
    };
    return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

inline double cpu_seconds_with_children()
{
    return cpu_seconds() + cpu_seconds_of_children();
}

#endif
