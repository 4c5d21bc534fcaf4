#include "process_mutex.h"

#include "signals_blocked.h"

#include <ace/ACE.h>
#include <ace/Process_Mutex.h>

#include <cerrno>
#include <new>
#include <sys/sem.h>

namespace
{

constexpr mode_t lock_mode = 0644;

// How ACE lays out the semaphore set of a process mutex.
namespace ace_set
{
constexpr unsigned short guard = 0; // 0, or 1 while a process opens or closes the set
constexpr unsigned short users = 1; // 10,000 less one for each open object; 0 in a new set
constexpr unsigned short lock = 2;  // 1 when free
constexpr int size = 3;
constexpr int no_users = 10000;
} // namespace ace_set

// How many openings in a row may find the lock deleted under their hands before that is a failure.
// delete_held_process_mutex never does that to them.
constexpr int most_lost_openings = 100;

// How many waits in a row may end with the lock deleted before something else must be wrong. Each
// deletion takes a run of the helper, so nobody gets here by bad luck.
constexpr int most_deletions = 100000;

int find(const char* name, int flags)
{
    return semget(static_cast<key_t>(ACE::crc32(name)), ace_set::size, flags);
}

int find_or_create(const char* name)
{
    return find(name, static_cast<int>(lock_mode) | IPC_CREAT);
}

bool take_guard(int set)
{
    sembuf operations[] = {{ace_set::guard, 0, 0}, {ace_set::guard, 1, SEM_UNDO}};
    return semop(set, operations, 2) == 0;
}

void leave_guard(int set)
{
    sembuf operation[] = {{ace_set::guard, -1, SEM_UNDO}};
    semop(set, operation, 1);
}

void give_lock_back(int set)
{
    sembuf operation[] = {{ace_set::lock, 1, SEM_UNDO}};
    semop(set, operation, 1);
}

int value_of(int set, unsigned short semaphore)
{
    return semctl(set, semaphore, GETVAL);
}

void set_value(int set, unsigned short semaphore, int value)
{
    semctl(set, semaphore, SETVAL, value);
}

// Whether no object has the set open. True of a new one too.
bool is_unused(int set)
{
    const int users = value_of(set, ace_set::users);
    return users == 0 || users == ace_set::no_users;
}

// ACE sets a new set's user count first and its lock last. A process killed in between leaves a
// lock that looks ready, that nobody holds and that nobody ever gets. So a set that nobody has open
// is made ready here, the user count last, under the guard that ACE's own opening takes. Whatever
// fails is left to ACE, which finds it again.
void make_ready(const char* name)
{
    const int set = find_or_create(name);
    if (set == -1 || !is_unused(set))
        return;
    if (!take_guard(set))
        return;
    if (is_unused(set)) {
        set_value(set, ace_set::lock, 1);
        set_value(set, ace_set::users, ace_set::no_users);
    }
    leave_guard(set);
}

// ACE gives up halfway where it has found a set but cannot take its guard. Such an object would be
// let in without being among the set's users, and would keep the guard when it closes. So it must
// not close, and counts as none.
std::unique_ptr<ACE_Process_Mutex> construct(void* memory, const char* name)
{
    errno = 0;
    auto* const mutex = new (memory) ACE_Process_Mutex(name, nullptr, lock_mode);
    const int error = errno;
    const bool set_is_gone = error == EINVAL || error == EIDRM;
    const bool may_close = error == 0 || set_is_gone || find(name, 0) == -1;
    if (may_close)
        return std::unique_ptr<ACE_Process_Mutex>(mutex);
    ::operator delete(memory);
    return nullptr;
}

} // namespace

std::unique_ptr<ACE_Process_Mutex> open_process_mutex(const char* name)
{
    const SignalsBlocked signals; // an opening that a signal interrupts is given up
    return std::unique_ptr<ACE_Process_Mutex>(new (std::nothrow)
                                                  ACE_Process_Mutex(name, nullptr, lock_mode));
}

bool open_waitable_process_mutex(const char* name, std::unique_ptr<ACE_Process_Mutex>& mutex)
{
    const SignalsBlocked signals;
    mutex.reset();
    // The object's memory comes first, since a lock made ready for no object would stay.
    void* const memory = ::operator new(sizeof(ACE_Process_Mutex), std::nothrow);
    if (memory == nullptr)
        return false;
    make_ready(name);
    mutex = construct(memory, name);
    return true;
}

bool acquire_process_mutex(std::unique_ptr<ACE_Process_Mutex>& mutex, const char* name)
{
    int deletions = 0;
    int lost_openings = 0;
    while (mutex != nullptr) {
        errno = 0;
        if (mutex->acquire() == 0)
            return true;
        switch (errno) {
        case EIDRM:  // deleted while we waited
        case EINVAL: // deleted before
            if (++deletions > most_deletions)
                return false;
            lost_openings = 0;
            break;
        case 0: // never opened: deleted in the middle of that, or not to be had
            if (++lost_openings > most_lost_openings || find_or_create(name) == -1)
                return false;
            break;
        default:
            return false;
        }
        open_waitable_process_mutex(name, mutex);
    }
    return false;
}

void delete_held_process_mutex(ACE_Process_Mutex& mutex, const char* name)
{
    const SignalsBlocked signals;
    const int set = find(name, 0);
    const bool guarded = set != -1 && take_guard(set); // goes with the set
    errno = 0;
    const bool deleted = mutex.remove() == 0;
    const bool is_not_ours_to_delete = errno == EPERM;
    mutex.release();
    if (!deleted && is_not_ours_to_delete)
        give_lock_back(set); // remove() forgot the set although it failed, so release() did nothing
    if (!deleted && guarded)
        leave_guard(set);
}
