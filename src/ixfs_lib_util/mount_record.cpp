#include "mount_record.h"

#include "control.h"
#include "process_mutex.h"
#include "signals_blocked.h"

#include <ace/Process_Mutex.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <new>
#include <utility>

namespace
{

// The backslash belongs to the name, on every platform.
constexpr char mount_mutex_name[text_size] = "Global\\_IXFS_MOUNT_MUTEX_";

constexpr unsigned int longest_timeout = 60; // seconds

_ixfs_mount_t* new_record(_ixfs_control_t* handle)
{
    void* const memory = std::calloc(1, sizeof(_ixfs_mount_t));
    if (memory == nullptr)
        return nullptr;
    auto* const record = new (memory) _ixfs_mount_t{};
    record->control = handle;
    control_retain(handle);
    mount_record_retain(record);
    return record;
}

// The failures of filling a record. Each logs one line, and its status is what to record.
ec_status invalid(_ixfs_control_t* handle, const char* tag, const char* message)
{
    _ixfs_log(handle, tag, IXFS_LOG_ERR, "%s", message);
    return EC_INVALID_PARAMETER;
}

ec_status no_memory(_ixfs_control_t* handle, const char* tag, const char* what)
{
    _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - allocation for %s failed, error = %d\n", what,
              errno);
    return EC_NO_MEMORY;
}

ec_status fill(_ixfs_mount_t* record, const char* tag, const ConnectionArguments& arguments)
{
    _ixfs_control_t* const handle = record->control;
    if (is_null_or_empty(arguments.server))
        return invalid(handle, tag, "ERR - invalid parameter, invalid media server\n");
    record->server = strdup(arguments.server);
    if (record->server == nullptr)
        return no_memory(handle, tag, "server name");

    if (arguments.port < 1)
        return invalid(handle, tag, "ERR - invalid parameter, invalid port number\n");
    record->port = arguments.port;

    if (is_null_or_empty(arguments.mount_cred) || is_null_or_empty(arguments.unmount_cred))
        return invalid(handle, tag, "ERR - invalid credentials\n");
    record->mount_cred = strdup(arguments.mount_cred);
    record->unmount_cred = strdup(arguments.unmount_cred);
    if (record->mount_cred == nullptr || record->unmount_cred == nullptr)
        return no_memory(handle, tag, "credentials");

    record->timeout = static_cast<int>(std::min(arguments.timeout, longest_timeout));
    return EC_OK;
}

void give_up_mutex(_ixfs_mount_t* record)
{
    if (record->mutex_held)
        delete_held_process_mutex(*record->mutex, mount_mutex_name);
    const SignalsBlocked signals; // a closing that a signal interrupts keeps the lock in use
    delete std::exchange(record->mutex, nullptr);
}

} // namespace

_ixfs_mount_t* attach_mount_record(_ixfs_control_t* handle, const char* tag,
                                   const ConnectionArguments& arguments)
{
    if (handle->mount != nullptr) {
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - a mount has already been made\n");
        handle->last_status = EC_ALREADY_MOUNTED;
        return nullptr;
    }
    handle->mount = new_record(handle);
    if (handle->mount == nullptr) {
        _ixfs_log(handle, tag, IXFS_LOG_ERR,
                  "ERR - calloc failed for mount structure, error = %d\n", errno);
        _ixfs_no_mount(handle, EC_NO_MEMORY);
        return nullptr;
    }
    const ec_status status = fill(handle->mount, tag, arguments);
    if (status != EC_OK) {
        _ixfs_no_mount(handle, status);
        return nullptr;
    }
    return handle->mount;
}

bool take_new_mount_mutex(_ixfs_control_t* handle, const char* tag, _ixfs_mount_t* record)
{
    std::unique_ptr<ACE_Process_Mutex> mutex;
    const bool has_object = open_waitable_process_mutex(mount_mutex_name, mutex);
    record->mutex = mutex.release();
    if (!has_object) {
        _ixfs_log(handle, tag, IXFS_LOG_INF,
                  "INF - Initialization failed for ACE_Process_Mutex, error = %d\n", errno);
        _ixfs_no_mount(handle, EC_SYSTEM_ERROR);
        return false;
    }
    _ixfs_server_log(handle, tag, IXFS_LOG_INF, "INF - waiting for mount mutex...\n");
    if (!acquire_mount_mutex(record)) {
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - unable to obtain mount mutex\n");
        _ixfs_no_mount(handle, EC_SYSTEM_ERROR);
        return false;
    }
    return true;
}

bool acquire_mount_mutex(_ixfs_mount_t* record)
{
    std::unique_ptr<ACE_Process_Mutex> mutex(record->mutex);
    record->mutex_held = acquire_process_mutex(mutex, mount_mutex_name);
    record->mutex = mutex.release();
    return record->mutex_held;
}

void release_mount_mutex(_ixfs_mount_t* record)
{
    record->mutex->release();
    record->mutex_held = false;
}

void mount_record_retain(_ixfs_mount_t* record)
{
    record->users.fetch_add(1, std::memory_order_relaxed);
}

void mount_record_release(_ixfs_mount_t* record)
{
    if (record->users.fetch_sub(1, std::memory_order_acq_rel) > 1)
        return;
    if (record->event != nullptr)
        record->event->remove(); // the object stays; its insides go
    control_release(record->control);
    record->~_ixfs_mount_t();
    std::free(record);
}

void _ixfs_mount_delete(_ixfs_mount_t* record)
{
    if (record == nullptr)
        return;
    if (record->event != nullptr)
        record->event->signal(); // its thread must end, whoever deletes the record
    give_up_mutex(record);
    for (char** const text :
         {&record->server, &record->mount_cred, &record->unmount_cred, &record->mnt_path})
        std::free(std::exchange(*text, nullptr));
    mount_record_release(record);
}
