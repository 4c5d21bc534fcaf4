// What a process leaves behind when it forgets to clean up.
#ifndef IXFS_TESTS_PROCESS_STATE_H
#define IXFS_TESTS_PROCESS_STATE_H

#include <string>
#include <vector>

// A System V semaphore set, which is what the kernel shows of a host-wide lock.
struct SemaphoreSet {
    int id;
    unsigned int permissions;
};

// All sets of the IPC namespace: of the whole host, unless the test runs in a namespace of its own.
std::vector<SemaphoreSet> semaphore_sets();

// What this process's file descriptors refer to, such as "/dev/null" and "socket:[4711]", sorted.
std::vector<std::string> open_descriptors();

// A number from this process's status, such as "Threads" or "VmSize" (in kB).
long process_status(const std::string& field);

// Fails the test when there are other descriptors open at its end than were at its beginning.
class NoDescriptorsLeft
{
public:
    NoDescriptorsLeft() : before_(open_descriptors()) {}
    ~NoDescriptorsLeft();
    NoDescriptorsLeft(const NoDescriptorsLeft&) = delete;
    NoDescriptorsLeft& operator=(const NoDescriptorsLeft&) = delete;

private:
    std::vector<std::string> before_;
};

// Fails the test when there is any lock at its end.
class NoLocksLeft
{
public:
    NoLocksLeft() = default;
    ~NoLocksLeft();
    NoLocksLeft(const NoLocksLeft&) = delete;
    NoLocksLeft& operator=(const NoLocksLeft&) = delete;
};

#endif
