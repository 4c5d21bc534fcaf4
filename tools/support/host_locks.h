// The library's host-wide locks, seen from outside: sets of System V semaphores. Looking changes
// nothing.
#ifndef IXFS_TOOLS_HOST_LOCKS_H
#define IXFS_TOOLS_HOST_LOCKS_H

#include <optional>
#include <sys/types.h>
#include <vector>

struct HostLock {
    int set;       // the kernel's number
    key_t key;     // a checksum of the lock's name
    uid_t creator; // who made it
    int users;     // how many have it open
    bool ready;    // false for one that was just created, and is still without values
    bool held;     // by one of them
    pid_t holder;  // if held: who took it. 0 if this process cannot see that one
    int waiting;   // how many processes wait for it
    bool busy;     // a process opens, closes or deletes it at this moment
};

// The lock under which each mount and unmount of the host runs; nothing if it does not exist.
// Throws std::system_error, also when the set may not be read.
std::optional<HostLock> find_mount_mutex();

// The sets that look like view locks. Their names cannot be found out, only their layout, so the
// lock of another program that uses the same library for locks can be among them.
std::vector<HostLock> find_view_locks();

// Whether the host's limits leave no semaphores for one more lock.
bool semaphores_are_used_up();

// The processes of this host that wait for a lock, as far as /proc tells this user.
std::vector<pid_t> processes_waiting_for(const HostLock& lock);

// Deletes a lock that nobody has open, as its last user would have done. False, with errno, if it
// cannot be deleted; EBUSY if somebody has it open by now.
bool delete_unused(const HostLock& lock);

#endif
