// What a call leaves behind in the system.
#ifndef IXFS_TESTS_FAULT_LEFTOVERS_H
#define IXFS_TESTS_FAULT_LEFTOVERS_H

#include <set>
#include <string>
#include <vector>

// What a fault itself makes impossible to take away.
enum class Leftover {
    free_lock, // a semaphore set that nobody holds, and that its next user takes as it is
    mount,     // the mounted image
    view       // the folder of a view that failed
};

// Remembers what the process has, to compare it later.
class Leftovers
{
public:
    Leftovers();

    // Fails the test for each descriptor, process, thread, lock and mount that has come since, and
    // for what is mounted or locked at all, but for what is excused. Takes locks and mounts away,
    // so that the next run begins without them. Waits for threads that are on their way out.
    void expect_none(const std::set<Leftover>& excused) const;

private:
    std::vector<std::string> descriptors_;
    std::string children_;
    long threads_;
};

#endif
