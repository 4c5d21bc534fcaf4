#include "process_mutex.h"

#include <ace/Process_Mutex.h>
#include <ace/Signal.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

namespace
{

// How many openings in a row may meet a deletion halfway before something else must be wrong.
constexpr int most_lost_openings = 10000;

using AceLock = ACE_SV_Semaphore_Complex;

// The lock within an object, and how to tell a lock which set it has: both are private in ACE. C++
// lets an explicit instantiation of a template name private members, and its friends can be called
// from outside.
template <AceLock ACE_Process_Mutex::*lock, int (ACE_SV_Semaphore_Simple::*tell_set)(key_t, int)>
struct AceInside {
    friend AceLock& lock_in(ACE_Process_Mutex& mutex) { return mutex.*lock; }
    friend void have_set(AceLock& ace_lock, key_t key, int set)
    {
        (reinterpret_cast<ACE_SV_Semaphore_Simple&>(ace_lock).*tell_set)(key, set); // its base
    }
};

AceLock& lock_in(ACE_Process_Mutex& mutex);
void have_set(AceLock& ace_lock, key_t key, int set);

template struct AceInside<&ACE_Process_Mutex::lock_, &ACE_SV_Semaphore_Simple::init>;

constexpr key_t no_key = -1;
constexpr int no_set = -1;

// Makes an object without ACE's constructor, since that uses whatever set has the key at the time:
// a set that another user made between our look and its own could make it wait forever.
ACE_Process_Mutex* make_object(void* memory)
{
    std::memset(memory, 0, sizeof(ACE_Process_Mutex));
    auto* const mutex = static_cast<ACE_Process_Mutex*>(memory);
    new (&lock_in(*mutex)) AceLock;
    return mutex;
}

// Returns the set, or none. errno is 0 if it is open.
SemaphoreSet open_set(key_t key)
{
    SemaphoreSet set(no_set);
    for (int i = 0; i < most_lost_openings; ++i) {
        set = SemaphoreSet::find_or_create(key);
        if (set.exists() && set.open()) {
            errno = 0;
            break;
        }
        if (!set.exists() || !means_deleted(errno))
            break;
    }
    return set;
}

} // namespace

void ProcessMutexCloser::operator()(ACE_Process_Mutex* mutex) const
{
    const ACE_Sig_Guard no_signals;
    const SemaphoreSet set = set_of(*mutex);
    if (set.exists())
        set.close();
    have_set(lock_in(*mutex), no_key, no_set); // ACE gives up a closing that is interrupted
    delete mutex;
}

void forget_process_mutex(ACE_Process_Mutex* mutex)
{
    ::operator delete(mutex); // it owns nothing beside itself
}

Opening open_process_mutex(const char* name)
{
    const ACE_Sig_Guard no_signals;
    // Memory comes first: if it were short afterwards, nobody would delete a lock made ready here.
    void* const memory = ::operator new(sizeof(ACE_Process_Mutex), std::nothrow);
    if (memory == nullptr)
        return {nullptr, SemaphoreSet(no_set), ENOMEM};
    ProcessMutexPtr mutex(make_object(memory));
    const key_t key = lock_key(name);
    const SemaphoreSet set = open_set(key);
    const int error = errno;
    if (error == 0)
        have_set(lock_in(*mutex), key, set.id());
    return {std::move(mutex), set, error};
}

SemaphoreSet set_of(ACE_Process_Mutex& mutex)
{
    return SemaphoreSet(lock_in(mutex).get_id());
}
