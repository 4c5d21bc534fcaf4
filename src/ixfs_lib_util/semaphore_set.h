// The System V semaphores that a named host-wide lock is made of, as ACE lays them out.
//
// The key of a set is a checksum of the lock's name. Three semaphores tell the lock's state:
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
//                       ^                |         and a process may delete it in any state. A
//                       +----------------+         waiter then fails with EIDRM, a later call
//                            release               with EINVAL.
//
// All changes are undone when their process dies: a lock whose holder is killed is free.
#ifndef IXFS_SEMAPHORE_SET_H
#define IXFS_SEMAPHORE_SET_H

#include <cstddef>
#include <sys/sem.h>

// The key of the lock called `name`. Two names may have the same.
key_t lock_key(const char* name);

// Whether a call failed since its set is gone.
bool means_deleted(int error);

// The set of a lock. A value: copies name the same set, and none owns it. errno tells of failures.
class SemaphoreSet
{
public:
    constexpr explicit SemaphoreSet(int id) : id_(id) {}

    // Finds the set, or creates one. For root, a set that another user created is none: it is
    // deleted, before anything of it is used, and a new one is created. If it may not be deleted,
    // or that user is quicker each time, the result is no set, and errno is EACCES.
    static SemaphoreSet find_or_create(key_t key);

    bool exists() const { return id_ != -1; }
    int id() const { return id_; }

    // Opens the lock: counts one more user. Makes the set ready if nobody has it open. Waits until
    // no other process is busy with the set. Returns whether that worked.
    bool open() const;

    // Closes the lock: counts one user less, and deletes the set after the last.
    void close() const;

    // Waits until no other process is busy with the set, and keeps others from it. Returns whether
    // that worked.
    bool take_guard() const;
    void leave_guard() const;

    // Whether a process waits for the lock.
    bool is_waited_for() const;

    // Deletes the set for the whole host. Returns whether that worked.
    bool remove() const;

private:
    enum Semaphore : unsigned short { guard, users, lock };

    template <std::size_t count>
    bool operate(sembuf (&operations)[count]) const;
    bool is_unused() const;
    int value_of(Semaphore semaphore) const;
    void set_value(Semaphore semaphore, int value) const;

    int id_;
};

#endif
