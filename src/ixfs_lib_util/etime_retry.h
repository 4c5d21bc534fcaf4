// The mounted file system fails a call with ETIME when its server does not answer in time.
#ifndef IXFS_ETIME_RETRY_H
#define IXFS_ETIME_RETRY_H

#include <cerrno>

constexpr int most_calls_on_etime = 100;

// Calls `system_call` until it does not fail with ETIME, at once and at most 100 times. Returns its
// last result and leaves errno as it set it.
template <typename SystemCall>
int call_again_on_etime(SystemCall system_call)
{
    int result = system_call();
    for (int calls = 1; result == -1 && errno == ETIME && calls < most_calls_on_etime; ++calls)
        result = system_call();
    return result;
}

#endif
