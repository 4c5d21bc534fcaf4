// The host's one lock for mounts and unmounts.
#ifndef IXFS_MOUNT_MUTEX_H
#define IXFS_MOUNT_MUTEX_H

#include "log.h"
#include "process_mutex.h"

// One record's part in the mount mutex. Every mount and unmount of the host runs its helper with
// the mutex held, whatever the server. There is no time limit for waiting. Who gives the mutex up
// for good deletes it for the whole host; who still waits makes it anew and goes on waiting.
//
// Not copied or moved. One thread at a time. errno tells of failures.
class MountMutex
{
public:
    MountMutex() = default;
    MountMutex(const MountMutex&) = delete;
    MountMutex& operator=(const MountMutex&) = delete;

    // Gives the mutex up. Where it is held, it is deleted for the whole host.
    ~MountMutex();

    // Opens the mutex and waits for it, and logs that. Returns whether it is held; else a line told
    // why. What ixfs_mount and ixfs_recreate_minimal_context begin with.
    bool open_and_wait(const Log& log);

    // Waits for a mutex that was opened. Returns whether it is held. Logs nothing.
    bool wait();

    // Lets the next one have it. The mutex stays open.
    void release();

    bool held() const { return held_; }

private:
    bool open();
    void remove();

    // The mount record's layout has the next two beside each other.
    ProcessMutexPtr object_; // null also where the mutex could not be had
    bool held_ = false;
};

#endif
