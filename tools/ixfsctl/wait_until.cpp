#include "wait_until.h"

#include <cerrno>
#include <poll.h>

bool is_ready_by(int descriptor, std::chrono::steady_clock::time_point end)
{
    using std::chrono::milliseconds;
    int result = 0;
    do {
        const auto left = end - std::chrono::steady_clock::now();
        const auto wait = std::chrono::duration_cast<milliseconds>(left).count();
        pollfd event = {descriptor, POLLIN, 0};
        result = poll(&event, 1, wait > 0 ? static_cast<int>(wait) : 0);
    } while (result == -1 && errno == EINTR);
    return result == 1;
}
