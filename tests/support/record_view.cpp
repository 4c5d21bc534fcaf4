#include "record_view.h"

#include "ixfs_lib_util/control.h"
#include "ixfs_lib_util/log.h"
#include "ixfs_lib_util/mount_record.h"
#include "ixfs_lib_util/mount_watch.h"
#include "ixfs_lib_util/unmount.h"

#include <cstdlib>
#include <cstring>

namespace
{

std::string text_of(const char* text)
{
    return text != nullptr ? text : "";
}

} // namespace

const std::size_t record_view::handle_size = sizeof(_ixfs_control_t);
const std::size_t record_view::watch_size = sizeof(MountWatch);

record_view::Addresses record_view::fields_of_handle(const _ixfs_control_t* handle)
{
    return {
        handle,
        &handle->log_context,
        &handle->log_callback,
        &handle->job_log_callback,
        &handle->job_log_context,
        &handle->flags,
        &handle->mount,
        &handle->views,
        &handle->name_groups,
        &handle->last_status,
    };
}

record_view::Addresses record_view::fields_of_mount(const _ixfs_control_t* handle)
{
    const _ixfs_mount_t& record = *handle->mount;
    return {
        &record,          &record.mount_point, &record.timeout,       &record.mutex,
        &record.server,   &record.port,        &record.mount_cred,    &record.unmount_cred,
        &record.mnt_path, &record.event,       &record.thread_result,
    };
}

char* record_view::mark_of(_ixfs_control_t* handle)
{
    static_assert(sizeof(handle->magic) == 8);
    return handle->magic;
}

void* record_view::log_context(const _ixfs_control_t* handle)
{
    return handle->log_context;
}

ec_status record_view::last_status(const _ixfs_control_t* handle)
{
    return handle->last_status;
}

void record_view::add_name_group(_ixfs_control_t* handle, const std::string& name,
                                 const std::vector<std::string>& names)
{
    auto* const group =
        static_cast<_ixfs_name_group_t*>(std::calloc(1, sizeof(_ixfs_name_group_t)));
    group->name = strdup(name.c_str());
    group->next = handle->name_groups;
    handle->name_groups = group;
    for (const std::string& member : names) {
        auto* const node = static_cast<_ixfs_name_t*>(std::calloc(1, sizeof(_ixfs_name_t)));
        node->name = strdup(member.c_str());
        node->next = group->names;
        group->names = node;
    }
}

_ixfs_mount_t* record_view::mount_of(const _ixfs_control_t* handle)
{
    return handle->mount;
}

record_view::Mount record_view::mount(const _ixfs_control_t* handle)
{
    const _ixfs_mount_t& record = *handle->mount;
    return {
        record.control,
        record.mount_point,
        record.timeout,
        record.mutex.held(),
        text_of(record.server.get()),
        record.port,
        text_of(record.mount_cred.get()),
        text_of(record.unmount_cred.get()),
        record.mnt_path != nullptr ? std::optional<std::string>(record.mnt_path.get())
                                   : std::nullopt,
        record.event != nullptr,
        record.thread_result,
    };
}

void record_view::set_inherited(_ixfs_control_t* handle, bool inherited)
{
    handle->maker.forks += inherited ? 1U : -1U;
}

void record_view::set_mount_point(_ixfs_control_t* handle, const std::string& mount_point)
{
    char(&text)[sizeof(handle->mount->mount_point)] = handle->mount->mount_point;
    text[mount_point.copy(text, sizeof(text) - 1)] = '\0';
}

void record_view::clear_unmount_cred(_ixfs_control_t* handle)
{
    *handle->mount->unmount_cred = '\0';
}

const void* record_view::watch_of(const _ixfs_control_t* handle)
{
    return handle->mount->watch.get();
}

void* record_view::stop_event(void* thread_argument)
{
    return static_cast<MountWatch*>(thread_argument)->stop_event();
}

bool record_view::signal_event(_ixfs_control_t* handle)
{
    return handle->mount->event->signal() == 0;
}
