// Named host-wide locks, as ACE's objects; see semaphore_set.h for what is behind them.
#ifndef IXFS_PROCESS_MUTEX_H
#define IXFS_PROCESS_MUTEX_H

#include "ixfs.h"
#include "semaphore_set.h"

#include <memory>

// Closes a lock and frees its object. Keeps signals off meanwhile.
struct ProcessMutexCloser {
    void operator()(ACE_Process_Mutex* mutex) const;
};

using ProcessMutexPtr = std::unique_ptr<ACE_Process_Mutex, ProcessMutexCloser>;

// Frees an object's memory without closing its lock: for a fork, which only has a copy of the
// object. A closing there would be counted as that of the process that it was forked from. Null is
// accepted.
void forget_process_mutex(ACE_Process_Mutex* mutex);

// What became of opening a lock. Without memory there is no object, and the error is ENOMEM. After
// another error there is an object that has no lock open: its calls fail, and leave errno alone.
struct Opening {
    ProcessMutexPtr mutex;
    SemaphoreSet set; // what the lock is made of, also when it could not be opened; or none
    int error;        // 0, or the error number
};

// Opens the lock called `name`, creating it where there is none. Waits while other processes open
// or close it. Root does not wait for a set that another user created: see
// SemaphoreSet::find_or_create. Whenever a process is killed, even in the middle of creating the
// lock, the next one can have it. A lock that is deleted meanwhile is made again. Keeps signals off
// meanwhile.
Opening open_process_mutex(const char* name);

// The set of the lock that an object has open, or none.
SemaphoreSet set_of(ACE_Process_Mutex& mutex);

#endif
