#include "mount_mutex.h"

#include <ace/Process_Mutex.h>
#include <ace/Signal.h>

#include <cerrno>
#include <utility>

namespace
{

// The backslash belongs to the name, on every platform.
constexpr char mutex_name[] = "Global\\_IXFS_MOUNT_MUTEX_";

// How many openings in a row may meet a deletion halfway before we give up. remove() never does
// that to them.
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

bool MountMutex::open_and_wait(const ServerLog& log)
{
    if (open() == ENOMEM) {
        log.info("INF - Initialization failed for ACE_Process_Mutex, error = %d\n", ENOMEM);
        return false;
    }
    log.server_info("INF - waiting for mount mutex...\n");
    if (!wait()) {
        log.error("ERR - unable to obtain mount mutex\n");
        return false;
    }
    return true;
}

// Returns 0, or the error number if there is no object. With an object, a failure shows at
// acquire().
int MountMutex::open()
{
    object_.reset();
    Opening opening = open_waitable_process_mutex(mutex_name);
    while (opening.error == EINTR)
        opening = open_waitable_process_mutex(mutex_name);
    object_ = std::move(opening.mutex);
    return opening.error;
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
        case EINTR: // no handler is needed for that: the end of another thread's helper interrupts
            continue;
        case EIDRM:  // deleted while we waited
        case EINVAL: // deleted before
            if (++deletions > most_deletions)
                return false;
            lost_openings = 0;
            break;
        case 0: // never opened: deleted in the middle of that, or not to be had
            if (++lost_openings > most_lost_openings ||
                !SemaphoreSet::find_or_create(mutex_name).exists())
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

void MountMutex::forget()
{
    forget_process_mutex(object_.release());
    held_ = false;
}

// Deletes the mutex and only then gives it up: a waiter finds it gone and is not granted a mutex
// that is about to vanish. Waits out a process that is opening it, so that ACE has nothing to
// complain of on standard error.
void MountMutex::remove()
{
    const ACE_Sig_Guard no_signals;
    const SemaphoreSet set = SemaphoreSet::find(mutex_name);
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
