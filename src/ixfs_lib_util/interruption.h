// A signal that interrupts a call ends nothing.
#ifndef IXFS_INTERRUPTION_H
#define IXFS_INTERRUPTION_H

#include <cerrno>
#include <sys/types.h>

// Makes a call again and again while a signal interrupts it. Returns its last result.
template <typename SystemCall>
ssize_t uninterrupted(SystemCall system_call)
{
    ssize_t result = system_call();
    while (result == -1 && errno == EINTR)
        result = system_call();
    return result;
}

#endif
