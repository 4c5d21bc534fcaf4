#include "mount_watch.h"

#include "control.h"
#include "mount_record.h"

#include <ace/OS_Errno.h>
#include <ace/OS_NS_Thread.h>
#include <ace/OS_NS_sys_stat.h>
#include <ace/OS_Thread_Adapter.h>
#include <ace/Time_Value.h>

#include <cerrno>
#include <memory>
#include <new>
#include <utility>

namespace
{

constexpr time_t seconds_between_validations = 300;

constexpr char validate_tag[] = "_ixfs_mount_validate()";

bool holds_backups(const Log& log, const char* mount_point)
{
    char name[text_size];
    strlcpy(name, mount_point, sizeof(name));
    strlcat(name, "/backups", sizeof(name));
    log.info("INF - Validating name: %s, mount_point: %s\n", name, mount_point);
    ACE_stat unused;
    if (ACE_OS::stat(name, &unused) == 0)
        return true;
    log.error("ERR - ACE_OS::stat(%s) failed, error = %d\n", name, errno);
    return false;
}

// Returns null if memory is short. ACE_Event's constructor reports missing memory only through
// errno, and such an event crashes at its first use. So it is thrown away.
ACE_Event* make_stop_event()
{
    constexpr int manual_reset = 1;
    errno = 0;
    std::unique_ptr<ACE_Event> event(new (std::nothrow) ACE_Event(manual_reset));
    if (errno == ENOMEM) {
        const ACE_Errno_Guard errno_guard(errno);
        event.reset();
    }
    return event.release();
}

void* const nothing_to_watch = reinterpret_cast<void*>(1); // a thread's result

// The thread's first function. `argument` is null, or the thread's share in a watch.
void* run_validation_thread(void* argument)
{
    const MountWatchPtr watch(static_cast<MountWatch*>(argument), false);
    if (watch == nullptr)
        return nothing_to_watch;
    watch->run();
    return nullptr;
}

// Starts the validation thread and gives it `watch`. Returns 0, or -1. Not ACE_Thread::spawn: when
// that fails, it leaks its adapter. The thread is detached because nobody joins it; its stack is
// freed when it ends.
int start_thread(MountWatchPtr watch)
{
    ACE_Base_Thread_Adapter* const adapter =
        new (std::nothrow) ACE_OS_Thread_Adapter(run_validation_thread, watch.get());
    if (adapter == nullptr)
        return -1;
    const int result =
        ACE_OS::thr_create(run_validation_thread, watch.get(), THR_NEW_LWP | THR_DETACHED, nullptr,
                           nullptr, ACE_DEFAULT_THREAD_PRIORITY, nullptr, 0, adapter);
    if (result == 0)
        watch.detach();
    else
        delete adapter; // else it is the thread's
    return result;
}

} // namespace

MountWatchPtr MountWatch::create(CallbackGatePtr gate, const char* mount_point)
{
    ACE_Event* const stop_event = make_stop_event();
    if (stop_event == nullptr)
        return nullptr;
    MountWatchPtr watch(new (std::nothrow) MountWatch(std::move(gate), stop_event, mount_point));
    if (watch == nullptr) {
        const ACE_Errno_Guard errno_guard(errno);
        delete stop_event;
    }
    return watch;
}

MountWatch::MountWatch(CallbackGatePtr gate, ACE_Event* stop_event, const char* mount_point)
    : gate_(std::move(gate)), stop_event_(stop_event)
{
    strlcpy(mount_point_, mount_point, sizeof(mount_point_));
}

MountWatch::~MountWatch()
{
    stop_event_->remove();
}

void MountWatch::run()
{
    const Log log(*gate_, "_ixfs_mount_validate_thread()");
    log.info("INF - starting validate thread\n");
    const ACE_Time_Value interval(seconds_between_validations, 0);
    while (stop_event_->wait(&interval, 0) == -1 && errno == ETIME) {
        log.info("INF - validating mount\n");
        holds_backups(Log(*gate_, validate_tag), mount_point_);
    }
    // After a stop errno means nothing; else it is why the wait failed.
    log.info("INF - stopping validate thread, errno = %d\n", errno);
}

void start_mount_watch(_ixfs_mount_t* record, const Log& log)
{
    record->watch = MountWatch::create(record->control->gate, record->mount_point);
    if (record->watch != nullptr)
        record->event = record->watch->stop_event();
    else
        log.error("ERR - ACE_Event() failed, error = %d\n", errno);

    // Started without a watch, too: the record then still tells whether a thread could be started.
    // Such a thread ends at once.
    record->thread_result = start_thread(record->watch);
    if (record->thread_result != 0)
        log.error("ERR - ACE_Thread::spawn() failed, error = %d\n", record->thread_result);
}

int _ixfs_mount_validate(_ixfs_control_t* handle, _ixfs_mount_t* record)
{
    if (handle == nullptr || record == nullptr)
        return 0;
    return holds_backups(Log(handle, validate_tag), record->mount_point) ? 1 : 0;
}

void* _ixfs_mount_validate_thread(void* record)
{
    auto* const mount = static_cast<_ixfs_mount_t*>(record);
    if (mount == nullptr || mount->watch == nullptr || is_inherited(mount->control))
        return nothing_to_watch;
    const MountWatchPtr watch = mount->watch; // the record may end meanwhile
    watch->run();
    return nullptr;
}
