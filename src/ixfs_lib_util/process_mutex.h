// Named host-wide locks as ACE lays them out, and what ACE leaves to be done.
//
// ACE keeps a lock in a System V semaphore set, whose key is a checksum of the lock's name. Three
// semaphores tell its state:
//
//              guard    users         lock
//     new        0        0             0      just made by semget
//     ready      0      10,000          1      nobody has it open
//     open       0      10,000 - n      1      n objects have it open, nobody holds it
//     held       0      10,000 - n      0      one of them holds it
//     busy       1        any          any     a process opens, closes or deletes it
//
//              open           acquire
//     ready ---------> open ---------> held        The last object that is closed deletes the set,
//                       ^                |         and so does remove(), whatever its state. A
//                       +----------------+         waiter then fails with EIDRM, a later call
//                            release               with EINVAL.
//
// All changes are undone when their process dies: a lock whose holder is killed is free.
#ifndef IXFS_PROCESS_MUTEX_H
#define IXFS_PROCESS_MUTEX_H

#include "ixfs.h"

#include <memory>

// The semaphore set of a lock. A value: copies name the same set, and none owns it. errno tells of
// failures.
class SemaphoreSet
{
public:
    static SemaphoreSet find(const char* name);
    static SemaphoreSet find_or_create(const char* name);

    bool exists() const { return id_ != -1; }

    // Waits until no other process is busy with the set, and makes it ready if nobody has it open.
    // ACE does both when it opens a lock, but sets the users first and the lock last: a process
    // killed in between leaves a set that looks ready and that nobody ever gets. And ACE gives up
    // when its wait is interrupted. What fails here is left to ACE, which finds it again.
    void make_ready() const;

    // Waits until no other process is busy with the set, and keeps others from it. A wait that is
    // interrupted goes on. Returns whether that worked.
    bool take_guard() const;
    void leave_guard() const;

    // Frees the lock, as release() does.
    void free_lock() const;

private:
    enum Semaphore : unsigned short { guard, users, lock };

    explicit SemaphoreSet(int id) : id_(id) {}

    bool is_unused() const;
    void change(Semaphore semaphore, short by) const;
    int value_of(Semaphore semaphore) const;
    void set_value(Semaphore semaphore, int value) const;

    int id_;
};

// Closes an object, and keeps signals off meanwhile: a closing that a signal interrupts would leave
// the lock in use for good.
struct ProcessMutexCloser {
    void operator()(ACE_Process_Mutex* mutex) const;
};

using ProcessMutexPtr = std::unique_ptr<ACE_Process_Mutex, ProcessMutexCloser>;

// Frees an object's memory without closing its lock. The kernel counts a lock's users and undoes
// what a process did when that dies, but a fork is no user and has nothing to undo: what it did with
// its copy of an object would be done to the object of the process that it was forked from. Null is
// accepted.
void forget_process_mutex(ACE_Process_Mutex* mutex);

// Opens the lock called `name`, creating it where there is none. Returns null when memory is short.
// An object that could not open its lock fails each acquire; errno then tells why, or is 0.
ProcessMutexPtr open_process_mutex(const char* name);

// What became of opening a lock: an object, or none and the error number that tells why.
struct Opening {
    ProcessMutexPtr mutex;
    int error; // ENOMEM: no memory. EINTR: interrupted, worth another try
};

// Opens a lock that processes wait for. Whenever one of them is killed, even in the middle of
// creating the lock, the next one can have it. As above, an object may have no lock.
Opening open_waitable_process_mutex(const char* name);

#endif
