#include "bounded_text.h"
#include "control.h"
#include "log.h"
#include "mount_mutex.h"
#include "process_mutex.h"

#include <ace/OS_NS_sys_utsname.h>
#include <ace/Process_Mutex.h>

#include <cerrno>
#include <cstdio>
#include <utility>

namespace
{

constexpr int most_attempts = 50;

enum class Attempt { won, lost, impossible };

// The host's name is part of every name below, so builders on different hosts get different names.
// uname asks the kernel alone: no name service can hang here.
bool get_host_name(const Log& log, char (&host)[text_size])
{
    host[0] = '\0';
    ACE_utsname names;
    if (ACE_OS::uname(&names) == -1) {
        log.error("ERR - ACE_OS::hostname(%s) failed, error = %d\n", host, errno);
        return false;
    }
    strlcpy(host, names.nodename, sizeof(host));
    log.error("INF - ACE_OS::hostname: %s\n", host);
    return true;
}

void format_base_name(const Log& log, int flags, const char* host, long id, char* base_name,
                      std::size_t size)
{
    constexpr char prefix[] = "_vv";
    if ((flags & IXFS_FLAG_VIEW_ID) != 0)
        std::snprintf(base_name, size, "%s_%s_%ld", prefix, host, id);
    else
        std::snprintf(base_name, size, "%s_%s", prefix, host);
    log.info("INF - base_name: %s\n", base_name);
}

// Tries once for the lock called `name`. During the attempt view->lock points to the lock. It stays
// there if the attempt wins. If it loses, the lock is removed even if another process holds it. A
// name with the mount mutex's key loses unopened.
Attempt try_lock(const Log& log, _ixfs_view_t* view, const char* name)
{
    log.info("INF - Trying to create mutex: %s\n", name);
    if (MountMutex::has_key_of(name))
        return Attempt::lost; // it is the host's, and a preparation holds or awaits it
    Opening opening = open_process_mutex(name);
    view->lock = opening.mutex.release();
    if (view->lock == nullptr) {
        log.error("ERR - Initialization failed for ACE_Process_Mutex, error = %d\n", opening.error);
        return Attempt::impossible;
    }
    if (opening.error == 0 && view->lock->tryacquire() == 0)
        return Attempt::won;
    // ACE reports a lock that another one holds as EAGAIN here, so that, too, is logged.
    const int error = opening.error != 0 ? opening.error : errno;
    if (error != EBUSY)
        log.warning("WRN - Acquire failed for ACE_Process_Mutex, error = %d\n", error);
    if (opening.error == 0)
        view->lock->remove();
    else
        opening.set.remove();
    const ProcessMutexPtr closed(std::exchange(view->lock, nullptr));
    return Attempt::lost;
}

// Tries for the locks of a base name, one number after the other, until the view has one. `name`
// receives the name of the latest. Returns its number, or -1 without a lock; the reason was logged.
int take_free_lock(const Log& log, _ixfs_view_t* view, long id, const char* base_name,
                   char (&name)[text_size])
{
    for (int number = 0; number < most_attempts; ++number) {
        std::snprintf(name, sizeof(name), "Global\\EGR_%ld_%s_%d", id, base_name, number);
        const Attempt attempt = try_lock(log, view, name);
        if (attempt == Attempt::won)
            return number;
        if (attempt == Attempt::impossible)
            return -1;
    }
    log.error("ERR - Exceeded retry limit, unable to get the mutex: %s\n", name);
    return -1;
}

} // namespace

int _ixfs_view_lock(_ixfs_control_t* handle, _ixfs_view_t* view, long id, char* base_name,
                    size_t size)
{
    if (is_inherited(handle))
        return 0; // deleting the view would not give the lock up
    const Log log(handle, "_ixfs_view_lock()");
    char host[text_size];
    if (!get_host_name(log, host))
        return 0;
    format_base_name(log, handle->flags, host, id, base_name, size);

    char name[text_size] = ""; // stays empty, also in the log, for a view that has a lock
    int number = 0;
    if (view->lock == nullptr)
        number = take_free_lock(log, view, id, base_name, name);
    if (number < 0)
        return 0;

    // The number makes the base name as unique as the lock is.
    view->lock_held = true;
    log.info("INF - Successfully created mutex: %s\n", name);
    char digits[sizeof("-2147483648")];
    std::snprintf(digits, sizeof(digits), "%d", number);
    strlcat(base_name, digits, size);
    return 1;
}
