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

// The semaphores, and the value of `users` while nobody has the set open.
constexpr unsigned short guard = 0;
constexpr unsigned short users = 1;
constexpr unsigned short lock = 2;
constexpr int set_size = 3;
constexpr int no_users = 10000;

int get_set(const char* name, int flags)
{
    return semget(static_cast<key_t>(ACE::crc32(name)), set_size, flags);
}

// ACE gives up halfway where it has found a set but cannot take its guard. Such an object would be
// let in without being among the set's users, and would keep the guard when it closes. So it must
// not close.
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
    if (!exists() || !is_unused())
        return;
    if (!take_guard()) // ACE's own opening takes it, too
        return;
    if (is_unused()) {
        set_value(lock, 1);
        set_value(users, no_users);
    }
    leave_guard();
}

bool SemaphoreSet::take_guard() const
{
    sembuf wait_and_raise[] = {{guard, 0, 0}, {guard, 1, SEM_UNDO}};
    return semop(id_, wait_and_raise, 2) == 0;
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

bool SemaphoreSet::change(unsigned short semaphore, short by) const
{
    sembuf operation[] = {{semaphore, by, SEM_UNDO}};
    return semop(id_, operation, 1) == 0;
}

int SemaphoreSet::value_of(unsigned short semaphore) const
{
    return semctl(id_, semaphore, GETVAL);
}

void SemaphoreSet::set_value(unsigned short semaphore, int value) const
{
    semctl(id_, semaphore, SETVAL, value);
}

void ProcessMutexCloser::operator()(ACE_Process_Mutex* mutex) const
{
    const ACE_Sig_Guard no_signals;
    delete mutex;
}

ProcessMutexPtr open_process_mutex(const char* name)
{
    const ACE_Sig_Guard no_signals; // an opening that a signal interrupts is given up
    return ProcessMutexPtr(new (std::nothrow) ACE_Process_Mutex(name, nullptr, lock_mode));
}

void* process_mutex_memory()
{
    return ::operator new(sizeof(ACE_Process_Mutex), std::nothrow);
}

ProcessMutexPtr open_waitable_process_mutex(void* memory, const char* name)
{
    const ACE_Sig_Guard no_signals;
    SemaphoreSet::find_or_create(name).make_ready();
    errno = 0;
    auto* const mutex = new (memory) ACE_Process_Mutex(name, nullptr, lock_mode);
    if (may_close(errno, name))
        return ProcessMutexPtr(mutex);
    ::operator delete(memory);
    return nullptr;
}
