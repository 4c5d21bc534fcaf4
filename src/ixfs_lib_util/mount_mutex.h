// The host's one lock for mounts and unmounts.
#ifndef IXFS_MOUNT_MUTEX_H
#define IXFS_MOUNT_MUTEX_H

#include "log.h"
#include "process_mutex.h"

// A mount record's hold on the mount mutex. Every mount and unmount of the host runs its helper
// with the mutex held, whatever the server. There is no time limit for waiting, and the longest
// waiter is next. A record that ends while it holds the mutex and nobody waits deletes it for the
// whole host; else the last record that has it open does.
//
// Not copied or moved. One thread at a time.
class MountMutex
{
public:
    MountMutex() = default;
    MountMutex(const MountMutex&) = delete;
    MountMutex& operator=(const MountMutex&) = delete;

    // Closes the mutex. If it is held, gives it up: to the longest waiter, or if there is none, by
    // deleting it for the whole host.
    ~MountMutex();

    // Opens the mutex and waits for it, and logs that. Returns whether it is held; if not, the
    // reason was logged. ixfs_mount and ixfs_recreate_minimal_context begin with it.
    bool open_and_wait(const ServerLog& log);

    // Waits for a mutex that was opened. Returns whether it is held. Logs nothing.
    bool wait();

    // Lets the next one have it. The mutex stays open.
    void release();

    bool held() const { return held_; }

    // Frees the object's memory and leaves the mutex as it is: for the fork of a process that has
    // the mutex open or holds it.
    void forget();

    // Whether a lock called `name` would be the mount mutex, since both have the same key.
    static bool has_key_of(const char* name);

private:
    int open();
    bool acquire();
    void give_up();

    // The mount record's layout has these two, in this order.
    ProcessMutexPtr object_; // null before open() and after one that failed
    bool held_ = false;
};

#endif
