#include "process_mutex.h"

#include <ace/ACE.h>
#include <ace/Process_Mutex.h>
#include <ace/Signal.h>

#include <cerrno>
#include <new>
#include <sys/sem.h>

namespace
{

constexpr mode_t lock_mode = 0644;

constexpr int set_size = 3;     // guard, users, lock
constexpr int no_users = 10000; // what `users` is while nobody has the set open

int get_set(const char* name, int flags)
{
    return semget(static_cast<key_t>(ACE::crc32(name)), set_size, flags);
}

// If ACE finds a set but cannot take its guard, it stops halfway and still gives an object.
// acquire() on it would succeed, though the set does not count it as a user, and its destructor
// would leave the guard taken. So the destructor must not run.
bool may_close(int error, const char* name)
{
    const bool set_is_gone = error == EINVAL || error == EIDRM;
    return error == 0 || set_is_gone || !SemaphoreSet::find(name).exists();
}

} // namespace

SemaphoreSet SemaphoreSet::find(const char* name)
{
    return SemaphoreSet(get_set(name, 0));
}

SemaphoreSet SemaphoreSet::find_or_create(const char* name)
{
    return SemaphoreSet(get_set(name, static_cast<int>(lock_mode) | IPC_CREAT));
}

void SemaphoreSet::make_ready() const
{
    if (!exists() || !take_guard())
        return;
    if (is_unused()) {
        set_value(lock, 1);
        set_value(users, no_users);
    }
    leave_guard();
}

bool SemaphoreSet::take_guard() const
{
    // EINTR comes with all signals blocked, too: a process that is stopped and continued gets it.
    sembuf wait_and_raise[] = {{guard, 0, 0}, {guard, 1, SEM_UNDO}};
    int result = semop(id_, wait_and_raise, 2);
    while (result == -1 && errno == EINTR)
        result = semop(id_, wait_and_raise, 2);
    return result == 0;
}

void SemaphoreSet::leave_guard() const
{
    change(guard, -1);
}

void SemaphoreSet::free_lock() const
{
    change(lock, 1);
}

// True of a new set, too.
bool SemaphoreSet::is_unused() const
{
    const int value = value_of(users);
    return value == 0 || value == no_users;
}

void SemaphoreSet::change(Semaphore semaphore, short by) const
{
    sembuf operation[] = {{semaphore, by, SEM_UNDO}};
    semop(id_, operation, 1); // does not wait: the value only goes to where it may be
}

int SemaphoreSet::value_of(Semaphore semaphore) const
{
    return semctl(id_, semaphore, GETVAL);
}

void SemaphoreSet::set_value(Semaphore semaphore, int value) const
{
    semctl(id_, semaphore, SETVAL, value);
}

void ProcessMutexCloser::operator()(ACE_Process_Mutex* mutex) const
{
    const ACE_Sig_Guard no_signals;
    delete mutex;
}

void forget_process_mutex(ACE_Process_Mutex* mutex)
{
    ::operator delete(mutex); // it owns nothing beside itself
}

ProcessMutexPtr open_process_mutex(const char* name)
{
    const ACE_Sig_Guard no_signals; // an opening that a signal interrupts is given up
    return ProcessMutexPtr(new (std::nothrow) ACE_Process_Mutex(name, nullptr, lock_mode));
}

Opening open_waitable_process_mutex(const char* name)
{
    const ACE_Sig_Guard no_signals;
    // Memory comes first: if it were short afterwards, nobody would delete a lock made ready here.
    void* const memory = ::operator new(sizeof(ACE_Process_Mutex), std::nothrow);
    if (memory == nullptr)
        return {nullptr, ENOMEM};
    SemaphoreSet::find_or_create(name).make_ready();
    errno = 0;
    auto* const mutex = new (memory) ACE_Process_Mutex(name, nullptr, lock_mode);
    const int error = errno;
    if (may_close(error, name))
        return {ProcessMutexPtr(mutex), 0};
    ::operator delete(memory);
    return {nullptr, error};
}
