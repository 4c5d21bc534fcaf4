#include "control.h"

#include "bounded_text.h"
#include "mount_record.h"

#include <cstdlib>
#include <new>

static_assert(sizeof(handle_magic) == sizeof(_ixfs_control_t::magic));

namespace
{

void free_names(_ixfs_name_t* name)
{
    while (name != nullptr) {
        _ixfs_name_t* const next = name->next;
        std::free(name->name);
        std::free(name);
        name = next;
    }
}

void free_name_groups(_ixfs_name_group_t* group)
{
    while (group != nullptr) {
        _ixfs_name_group_t* const next = group->next;
        std::free(group->name);
        free_names(group->names);
        std::free(group);
        group = next;
    }
}

// Waits for a callback that the validation thread is inside of, and lets it enter no further one.
void close_thread_callback_gate(_ixfs_control_t* handle)
{
    const std::lock_guard<std::mutex> gate(handle->thread_callback_gate);
    handle->terminated = true;
}

} // namespace

void control_retain(_ixfs_control_t* handle)
{
    handle->users.fetch_add(1, std::memory_order_relaxed);
}

void control_release(_ixfs_control_t* handle)
{
    if (handle->users.fetch_sub(1, std::memory_order_acq_rel) > 1)
        return;
    handle->~_ixfs_control_t();
    std::free(handle);
}

_ixfs_control_t* ixfs_init(int flags, void* log_context, ixfs_log_callback log_callback,
                           ixfs_job_log_callback job_log_callback, void* job_log_context)
{
    void* const memory = std::calloc(1, sizeof(_ixfs_control_t));
    if (memory == nullptr)
        return nullptr;
    auto* const handle = new (memory) _ixfs_control_t{};
    strlcpy(handle->magic, handle_magic, sizeof(handle->magic));
    handle->log_context = log_context;
    handle->log_callback = log_callback;
    handle->job_log_callback = job_log_callback;
    handle->job_log_context = job_log_context;
    handle->flags = flags;
    handle->last_status = EC_OK;
    control_retain(handle);
    _ixfs_log_init();
    return handle;
}

int _ixfs_is_invalid(const _ixfs_control_t* handle)
{
    return handle == nullptr ||
           std::memcmp(handle->magic, handle_magic, sizeof(handle->magic)) != 0;
}

ec_status ixfs_last_error(const _ixfs_control_t* handle)
{
    return _ixfs_is_invalid(handle) ? EC_INVALID_PARAMETER : handle->last_status;
}

void ixfs_term(_ixfs_control_t* handle)
{
    if (_ixfs_is_invalid(handle))
        return;
    while (handle->views != nullptr)
        _ixfs_view_delete(handle, handle->views);
    free_name_groups(handle->name_groups);
    handle->name_groups = nullptr;
    ixfs_unmount(handle);
    close_thread_callback_gate(handle);
    control_release(handle);
}

void _ixfs_no_mount(_ixfs_control_t* handle, ec_status status)
{
    _ixfs_mount_delete(handle->mount);
    handle->mount = nullptr;
    handle->last_status = status;
}
