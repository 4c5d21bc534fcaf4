#include "mount_mutex.h"

#include <ace/Process_Mutex.h>
#include <ace/Signal.h>

#include <cerrno>

namespace
{

// The backslash belongs to the name, on every platform.
constexpr char name[] = "Global\\_IXFS_MOUNT_MUTEX_";

// How many openings in a row may find the mutex deleted under their hands before that is a failure.
// remove() never does that to them.
constexpr int most_lost_openings = 100;

// How many waits in a row may end with the mutex deleted before something else must be wrong. Each
// deletion takes a run of the helper, so nobody gets here by bad luck.
constexpr int most_deletions = 100000;

} // namespace

MountMutex::~MountMutex()
{
    if (held_)
        remove();
}

bool MountMutex::open_and_wait(const Log& log)
{
    if (!open()) {
        log.info("INF - Initialization failed for ACE_Process_Mutex, error = %d\n", errno);
        return false;
    }
    log.server_info("INF - waiting for mount mutex...\n");
    if (!wait()) {
        log.error("ERR - unable to obtain mount mutex\n");
        return false;
    }
    return true;
}

// Returns false when there is no memory for the object. A mutex that cannot be had for another
// reason shows when it is waited for.
bool MountMutex::open()
{
    object_.reset();
    void* const memory = process_mutex_memory(); // first: a mutex made for no object would stay
    if (memory == nullptr)
        return false;
    object_ = open_waitable_process_mutex(memory, name);
    return true;
}

bool MountMutex::wait()
{
    int deletions = 0;
    int lost_openings = 0;
    while (object_ != nullptr) {
        errno = 0;
        if (object_->acquire() == 0) {
            held_ = true;
            return true;
        }
        switch (errno) {
        case EINTR: // the end of another thread's helper is enough to interrupt
            continue;
        case EIDRM:  // deleted while we waited
        case EINVAL: // deleted before
            if (++deletions > most_deletions)
                return false;
            lost_openings = 0;
            break;
        case 0: // never opened: deleted in the middle of that, or not to be had
            if (++lost_openings > most_lost_openings ||
                !SemaphoreSet::find_or_create(name).exists())
                return false;
            break;
        default:
            return false;
        }
        open();
    }
    return false;
}

void MountMutex::release()
{
    object_->release();
    held_ = false;
}

// Deletes the mutex and only then gives it up: a waiter finds it gone and is not granted a mutex
// that is about to vanish. Waits out a process that is opening it, so that ACE has nothing to
// complain of on standard error.
void MountMutex::remove()
{
    const ACE_Sig_Guard no_signals;
    const SemaphoreSet set = SemaphoreSet::find(name);
    const bool guarded = set.exists() && set.take_guard(); // the guard goes with the set
    errno = 0;
    const bool deleted = object_->remove() == 0;
    const bool is_not_ours_to_delete = errno == EPERM;
    object_->release();
    held_ = false;
    if (deleted)
        return;
    if (is_not_ours_to_delete)
        set.free_lock(); // remove() forgot the set although it failed, so release() did nothing
    if (guarded)
        set.leave_guard();
}
