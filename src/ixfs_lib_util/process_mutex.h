// Named host-wide locks: opening one, and waiting for one that others may delete.
#ifndef IXFS_PROCESS_MUTEX_H
#define IXFS_PROCESS_MUTEX_H

#include "ixfs.h"

#include <memory>

// Opens the lock called `name`, creating it where there is none. Returns null when memory is short.
// An object that could not open its lock fails each acquire; errno then tells why, or is 0.
std::unique_ptr<ACE_Process_Mutex> open_process_mutex(const char* name);

// The same, for a lock that processes wait for: whenever a process is killed, even in the middle of
// creating it, the next one can have it. Returns whether there was memory. Where the lock could not
// be opened, `mutex` may be null all the same.
bool open_waitable_process_mutex(const char* name, std::unique_ptr<ACE_Process_Mutex>& mutex);

// Waits for such a lock without a time limit. Another process that deletes the lock meanwhile is no
// failure: `mutex` is opened again and waited for. Returns whether the lock is held; after a
// failure `mutex` may be null. A null `mutex` fails.
bool acquire_process_mutex(std::unique_ptr<ACE_Process_Mutex>& mutex, const char* name);

// Deletes such a lock, which must be held, for the whole host, and only then gives it up: a waiter
// finds it gone and is not granted a lock that is about to vanish. Waits out a process that is
// opening it, so that ACE has nothing to complain of on standard error.
void delete_held_process_mutex(ACE_Process_Mutex& mutex, const char* name);

#endif
