#include "semaphore_set.h"

#include "interruption.h"

#include <ace/ACE.h>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr int lock_mode = 0644;

constexpr SemaphoreSet none(-1);

constexpr int set_size = 3;     // guard, users, lock
constexpr int no_users = 10000; // what `users` is while nobody has the set open

// How many sets of other users root deletes before it gives up.
constexpr int most_foreign_sets = 1000;

enum class Creator { is_root, is_other, is_unknown };

Creator creator_of(int set)
{
    constexpr uid_t root = 0;
    semid_ds status{};
    if (semctl(set, 0, IPC_STAT, &status) == -1)
        return Creator::is_unknown;
    return status.sem_perm.cuid == root ? Creator::is_root : Creator::is_other;
}

bool delete_set(int set)
{
    return semctl(set, 0, IPC_RMID) == 0;
}

bool is_root()
{
    return geteuid() == 0;
}

} // namespace

key_t lock_key(const char* name)
{
    return static_cast<key_t>(ACE::crc32(name));
}

bool means_deleted(int error)
{
    return error == EIDRM || error == EINVAL;
}

SemaphoreSet SemaphoreSet::find_or_create(key_t key)
{
    if (key == IPC_PRIVATE) { // names no set, but asks for one that nobody else finds
        errno = EINVAL;
        return none;
    }
    for (int i = 0; i < most_foreign_sets; ++i) {
        const int set = semget(key, set_size, lock_mode | IPC_CREAT);
        const int error = errno;
        if (!is_root() || (set == -1 && error != EINVAL))
            return SemaphoreSet(set);
        // A set with fewer semaphores is in the way, too, though nobody could use it.
        const int found = set != -1 ? set : semget(key, 0, 0);
        if (found == -1 && errno == ENOENT)
            continue;
        const Creator creator = creator_of(found);
        if (creator == Creator::is_root) {
            errno = error;
            return SemaphoreSet(set);
        }
        if (creator == Creator::is_other && delete_set(found))
            continue;
        if (!means_deleted(errno))
            break;
    }
    errno = EACCES;
    return none;
}

// ACE does this when it opens a lock, too, but sets the users first and the lock last: a process
// killed in between leaves a set that looks ready and that nobody ever gets.
bool SemaphoreSet::open() const
{
    if (!take_guard())
        return false;
    if (is_unused()) {
        set_value(lock, 1);
        set_value(users, no_users);
    }
    sembuf count_and_leave[] = {{users, -1, SEM_UNDO}, {guard, -1, SEM_UNDO}};
    return operate(count_and_leave);
}

void SemaphoreSet::close() const
{
    if (!take_guard())
        return;
    const bool is_last = value_of(users) == no_users - 1;
    if (is_last && remove())
        return;
    sembuf discount_and_leave[] = {{users, 1, SEM_UNDO}, {guard, -1, SEM_UNDO}};
    operate(discount_and_leave);
}

bool SemaphoreSet::take_guard() const
{
    sembuf wait_and_raise[] = {{guard, 0, 0}, {guard, 1, SEM_UNDO}};
    return operate(wait_and_raise);
}

void SemaphoreSet::leave_guard() const
{
    sembuf lower[] = {{guard, -1, SEM_UNDO}};
    operate(lower);
}

bool SemaphoreSet::is_waited_for() const
{
    return semctl(id_, lock, GETNCNT) > 0;
}

bool SemaphoreSet::remove() const
{
    return delete_set(id_);
}

// EINTR comes with all signals blocked, too: a process that is stopped and continued gets it.
template <std::size_t count>
bool SemaphoreSet::operate(sembuf (&operations)[count]) const
{
    return uninterrupted([&] { return semop(id_, operations, count); }) == 0;
}

// True of a new set, too.
bool SemaphoreSet::is_unused() const
{
    const int value = value_of(users);
    return value == 0 || value == no_users;
}

int SemaphoreSet::value_of(Semaphore semaphore) const
{
    return semctl(id_, semaphore, GETVAL);
}

void SemaphoreSet::set_value(Semaphore semaphore, int value) const
{
    semctl(id_, semaphore, SETVAL, value);
}
