// An end for tests that may hang.
#ifndef IXFS_TESTS_WATCHDOG_H
#define IXFS_TESTS_WATCHDOG_H

#include <chrono>
#include <functional>
#include <string>

#include <sys/types.h>

// Kills the process, and says which test it was in, when it lives for too long. A process of its
// own watches, so that neither blocked signals nor threads that hang stop it, and so that the test
// has no thread more than it starts.
class Watchdog
{
public:
    // doing  what the message says beside the test's name
    explicit Watchdog(std::chrono::seconds limit, const std::string& doing = "");
    ~Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

private:
    pid_t process_;
};

// Waits for what nothing tells of but looking again. Has no end but the watchdog's.
void look_until(const std::function<bool()>& condition);

#endif
