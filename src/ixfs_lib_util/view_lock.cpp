#include "bounded_text.h"
#include "control.h"
#include "process_mutex.h"

#include <ace/OS_NS_sys_utsname.h>
#include <ace/Process_Mutex.h>

#include <cerrno>
#include <cstdio>
#include <memory>

namespace
{

constexpr char tag[] = "_ixfs_view_lock()";

constexpr int most_attempts = 50;

enum class Attempt { won, lost, impossible };

bool get_host_name(_ixfs_control_t* handle, char (&host)[text_size])
{
    host[0] = '\0';
    ACE_utsname names;
    if (ACE_OS::uname(&names) == -1) {
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - ACE_OS::hostname(%s) failed, error = %d\n",
                  host, errno);
        return false;
    }
    strlcpy(host, names.nodename, sizeof(host));
    _ixfs_log(handle, tag, IXFS_LOG_ERR, "INF - ACE_OS::hostname: %s\n", host);
    return true;
}

void format_base_name(_ixfs_control_t* handle, const char* host, long id, char* base_name,
                      std::size_t size)
{
    constexpr char prefix[] = "_vv";
    if ((handle->flags & IXFS_FLAG_VIEW_ID) != 0)
        std::snprintf(base_name, size, "%s_%s_%ld", prefix, host, id);
    else
        std::snprintf(base_name, size, "%s_%s", prefix, host);
    _ixfs_log(handle, tag, IXFS_LOG_INF, "INF - base_name: %s\n", base_name);
}

// Tries once for the lock called `name`, which the view then has. Where the lock is lost, it is
// removed, whoever holds it, and the view has none.
Attempt try_lock(_ixfs_control_t* handle, _ixfs_view_t* view, const char* name)
{
    _ixfs_log(handle, tag, IXFS_LOG_INF, "INF - Trying to create mutex: %s\n", name);
    std::unique_ptr<ACE_Process_Mutex> lock = open_process_mutex(name);
    if (lock == nullptr) {
        _ixfs_log(handle, tag, IXFS_LOG_ERR,
                  "ERR - Initialization failed for ACE_Process_Mutex, error = %d\n", errno);
        return Attempt::impossible;
    }
    if (lock->tryacquire() == 0) {
        view->lock = lock.release();
        return Attempt::won;
    }
    if (errno != EBUSY)
        _ixfs_log(handle, tag, IXFS_LOG_WRN,
                  "WRN - Acquire failed for ACE_Process_Mutex, error = %d\n", errno);
    lock->remove();
    return Attempt::lost;
}

} // namespace

int _ixfs_view_lock(_ixfs_control_t* handle, _ixfs_view_t* view, long id, char* base_name,
                    size_t size)
{
    char host[text_size];
    if (!get_host_name(handle, host))
        return 0;
    format_base_name(handle, host, id, base_name, size);

    char name[text_size] = "";
    int number = 0;
    Attempt last = view->lock != nullptr ? Attempt::won : Attempt::lost;
    while (last == Attempt::lost && number < most_attempts) {
        std::snprintf(name, sizeof(name), "Global\\EGR_%ld_%s_%d", id, base_name, number);
        last = try_lock(handle, view, name);
        if (last == Attempt::lost)
            ++number;
    }
    if (last == Attempt::impossible)
        return 0;
    if (last == Attempt::lost) {
        _ixfs_log(handle, tag, IXFS_LOG_ERR,
                  "ERR - Exceeded retry limit, unable to get the mutex: %s\n", name);
        return 0;
    }

    view->lock_held = true;
    _ixfs_log(handle, tag, IXFS_LOG_INF, "INF - Successfully created mutex: %s\n", name);
    char digits[sizeof("-2147483648")];
    std::snprintf(digits, sizeof(digits), "%d", number);
    strlcat(base_name, digits, size);
    return 1;
}
