#include "mount_mutex.h"

#include <ace/Process_Mutex.h>
#include <ace/Signal.h>

#include <cerrno>
#include <utility>

namespace
{

// The backslash belongs to the name, on every platform.
constexpr char mutex_name[] = "Global\\_IXFS_MOUNT_MUTEX_";

// How many waits in a row may end with the mutex deleted before something else must be wrong. Each
// deletion takes a run of the helper, so nobody gets here by bad luck.
constexpr int most_deletions = 100000;

} // namespace

MountMutex::~MountMutex()
{
    if (held_)
        give_up();
}

bool MountMutex::has_key_of(const char* name)
{
    return lock_key(name) == lock_key(mutex_name);
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

// Returns 0 or the error number.
int MountMutex::open()
{
    object_.reset();
    Opening opening = open_process_mutex(mutex_name);
    object_ = std::move(opening.mutex);
    return opening.error;
}

bool MountMutex::wait()
{
    int deletions = 0;
    while (!acquire()) {
        if (!means_deleted(errno) || ++deletions > most_deletions || open() != 0)
            return false;
    }
    held_ = true;
    return true;
}

// Returns whether the mutex is held. If not, errno tells why; it is 0 if the mutex is not open.
bool MountMutex::acquire()
{
    int result = 0;
    do { // no handler is needed for EINTR: the end of another thread's helper interrupts, too
        errno = 0;
        result = object_ != nullptr ? object_->acquire() : -1;
    } while (result != 0 && errno == EINTR);
    return result == 0;
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

// If others wait, the longest waiter gets the mutex, and the last user's closing deletes it: a
// deletion would send all of them to a new queue, in any order. If nobody waits, deletes the mutex
// and only then gives it up: whoever comes now finds it gone, and is not granted a mutex that is
// about to vanish. The guard keeps others from opening or closing it meanwhile. A process that has
// it open and begins to wait after the look makes it anew.
void MountMutex::give_up()
{
    const ACE_Sig_Guard no_signals;
    const SemaphoreSet set = set_of(*object_);
    const bool guarded = set.take_guard();
    const bool deleted = !(guarded && set.is_waited_for()) && set.remove();
    release();
    if (guarded && !deleted)
        set.leave_guard();
}
