#include "control.h"

#include "bounded_text.h"
#include "log.h"
#include "mount_record.h"

#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

namespace
{

constexpr char handle_magic[] = "IxFsCtL";
static_assert(sizeof(handle_magic) == sizeof(_ixfs_control_t::magic));

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

void end_mount(_ixfs_control_t* handle)
{
    if (is_inherited(handle)) {
        _ixfs_mount_delete(std::exchange(handle->mount, nullptr));
        return; // its threads were not copied, and the gate may be locked by one of them
    }
    ixfs_unmount(handle); // with nothing mounted it only clears the last status
    // The threads of this and earlier mounts may still be running. They keep the gate, not the
    // handle, so the handle can go at once.
    handle->gate->close();
}

} // namespace

_ixfs_control_t* ixfs_init(int flags, void* log_context, ixfs_log_callback log_callback,
                           ixfs_job_log_callback job_log_callback, void* job_log_context)
{
    std::unique_ptr<_ixfs_control_t> handle(new _ixfs_control_t{});
    if (handle == nullptr)
        return nullptr;
    handle->gate = new (std::nothrow) CallbackGate(log_callback);
    if (handle->gate == nullptr)
        return nullptr;
    strlcpy(handle->magic, handle_magic, sizeof(handle->magic));
    handle->log_context = log_context;
    handle->log_callback = log_callback;
    handle->job_log_callback = job_log_callback;
    handle->job_log_context = job_log_context;
    handle->flags = flags;
    handle->last_status = EC_OK;
    handle->maker = this_process();
    _ixfs_log_init();
    return handle.release();
}

int _ixfs_is_invalid(const _ixfs_control_t* handle)
{
    return handle == nullptr ||
           std::memcmp(handle->magic, handle_magic, sizeof(handle->magic)) != 0;
}

bool is_inherited(const _ixfs_control_t* handle)
{
    return !_ixfs_is_invalid(handle) && !(handle->maker == this_process());
}

ec_status ixfs_last_error(const _ixfs_control_t* handle)
{
    if (_ixfs_is_invalid(handle) || is_inherited(handle))
        return EC_INVALID_PARAMETER;
    return handle->last_status;
}

void ixfs_term(_ixfs_control_t* handle)
{
    if (_ixfs_is_invalid(handle))
        return;
    // Views first: nobody works in the image any more, and the unmount may wait for others without a
    // limit. A caller that has unmounted already, as a preparation has, keeps their locks until here.
    while (handle->views != nullptr)
        _ixfs_view_delete(handle, handle->views);
    free_name_groups(handle->name_groups);
    handle->name_groups = nullptr;
    end_mount(handle);
    delete handle;
}

void _ixfs_no_mount(_ixfs_control_t* handle, ec_status status)
{
    _ixfs_mount_delete(std::exchange(handle->mount, nullptr));
    if (!is_inherited(handle))
        handle->last_status = status;
}
