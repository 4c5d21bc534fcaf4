#include "mount_validation.h"

#include "errno_keeper.h"
#include "log.h"
#include "mount_record.h"

#include <ace/OS_NS_Thread.h>
#include <ace/OS_NS_sys_stat.h>
#include <ace/OS_Thread_Adapter.h>
#include <ace/Time_Value.h>

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <new>
#include <unistd.h>

namespace
{

constexpr time_t seconds_between_validations = 300;

bool holds_backups(_ixfs_control_t* handle, const char* mount_point, LogFunction log)
{
    constexpr char tag[] = "_ixfs_mount_validate()";
    char name[text_size];
    strlcpy(name, mount_point, sizeof(name));
    strlcat(name, "/backups", sizeof(name));
    log(handle, tag, IXFS_LOG_INF, "INF - Validating name: %s, mount_point: %s\n", name,
        mount_point);
    ACE_stat unused;
    if (ACE_OS::stat(name, &unused) == 0)
        return true;
    log(handle, tag, IXFS_LOG_ERR, "ERR - ACE_OS::stat(%s) failed, error = %d\n", name, errno);
    return false;
}

// The started thread's first function. The record was retained for it before it started.
void* watch_retained_record(void* argument)
{
    void* const result = _ixfs_mount_validate_thread(argument);
    mount_record_release(static_cast<_ixfs_mount_t*>(argument));
    return result;
}

// As ACE_Thread::spawn, which loses the adapter that it makes when the thread cannot be started.
int spawn(_ixfs_mount_t* record, ACE_hthread_t* thread)
{
    ACE_Base_Thread_Adapter* const adapter =
        new (std::nothrow) ACE_OS_Thread_Adapter(watch_retained_record, record);
    if (adapter == nullptr)
        return -1;
    const int result =
        ACE_OS::thr_create(watch_retained_record, record, THR_NEW_LWP | THR_DETACHED, nullptr,
                           thread, ACE_DEFAULT_THREAD_PRIORITY, nullptr, 0, adapter);
    if (result != 0)
        delete adapter; // else it is the thread's
    return result;
}

// Gives a thread's handle back, which other platforms want. Here it is a thread's id, so there is
// nothing to give back; but where its lower half happens to be the number of a descriptor that the
// process has open, closing it would take that away.
void close_thread_handle(ACE_hthread_t thread)
{
    const int number = static_cast<int>(thread);
    if (fcntl(number, F_GETFD) == -1)
        close(number);
}

// Returns null when no object results. An event that finds no memory for its insides crashes at its
// first use, and tells of it only through errno.
ACE_Event* make_stop_event()
{
    constexpr int manual_reset = 1;
    errno = 0;
    std::unique_ptr<ACE_Event> event(new (std::nothrow) ACE_Event(manual_reset));
    if (errno == ENOMEM) {
        const ErrnoKeeper errno_keeper;
        event.reset();
    }
    return event.release();
}

} // namespace

int _ixfs_mount_validate(_ixfs_control_t* handle, _ixfs_mount_t* record)
{
    if (handle == nullptr || record == nullptr)
        return 0;
    return holds_backups(handle, record->mount_point, _ixfs_log);
}

void* _ixfs_mount_validate_thread(void* argument)
{
    constexpr char tag[] = "_ixfs_mount_validate_thread()";
    auto* const record = static_cast<_ixfs_mount_t*>(argument);
    if (record == nullptr || record->event == nullptr)
        return reinterpret_cast<void*>(1);

    _ixfs_control_t* const handle = record->control;
    log_from_validation_thread(handle, tag, IXFS_LOG_INF, "INF - starting validate thread\n");
    const ACE_Time_Value interval(seconds_between_validations, 0);
    while (record->event->wait(&interval, 0) == -1 && errno == ETIME) {
        log_from_validation_thread(handle, tag, IXFS_LOG_INF, "INF - validating mount\n");
        holds_backups(handle, record->watched_mount_point, log_from_validation_thread);
    }
    log_from_validation_thread(handle, tag, IXFS_LOG_INF,
                               "INF - stopping validate thread, errno = %d\n", errno);
    return nullptr;
}

void start_mount_validation(_ixfs_control_t* handle, const char* tag, _ixfs_mount_t* record)
{
    record->event = make_stop_event();
    if (record->event == nullptr)
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - ACE_Event() failed, error = %d\n", errno);
    strlcpy(record->watched_mount_point, record->mount_point, sizeof(record->watched_mount_point));

    mount_record_retain(record);
    ACE_hthread_t thread{};
    record->thread_result = spawn(record, &thread);
    if (record->thread_result != 0) {
        mount_record_release(record);
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - ACE_Thread::spawn() failed, error = %d\n",
                  record->thread_result);
        return;
    }
    close_thread_handle(thread);
}
