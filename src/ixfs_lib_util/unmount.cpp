#include "control.h"
#include "helper_command.h"
#include "mount_record.h"
#include "mount_root.h"

#include <cerrno>
#include <sys/mount.h>

namespace
{

constexpr char tag[] = "ixfs_unmount()";

// Removes the mount point directory, unless that would delete the backup through its mount.
void delete_mount_point(_ixfs_control_t* handle, const char* operation_tag, const char* mount_point)
{
    if (mount_root(mount_point) != MountRoot::no)
        _ixfs_log(handle, operation_tag, IXFS_LOG_ERR, "ERR - still mounted, not deleted: %s\n",
                  mount_point);
    else
        _ixfs_folder_delete(handle, mount_point);
}

void unmount_locally(_ixfs_control_t* handle, const char* mount_point)
{
    constexpr char local_tag[] = "_ixfs_umount()";
    _ixfs_log(handle, local_tag, IXFS_LOG_INF, "INF - attempting to umount -f (%s)\n", mount_point);
    if (umount2(mount_point, MNT_FORCE) == -1)
        _ixfs_log(handle, local_tag, IXFS_LOG_ERR, "ERR - umount failed for %s, errno = %d\n",
                  mount_point, errno);
    else
        _ixfs_log(handle, local_tag, IXFS_LOG_INF, "INF - umount successful: %s\n", mount_point);
    delete_mount_point(handle, local_tag, mount_point);
}

// The helper's answers to an unmount. With a mount path known, any pass ends it.
class UnmountConversation final : public HelperConversation
{
public:
    explicit UnmountConversation(_ixfs_mount_t* record) : record_(record) {}

    void pass_begins() override { exit_status = 0; }

    Reading response(const char* line) override
    {
        if (take_exit_status(line))
            _ixfs_server_log(record_->control, tag, IXFS_LOG_INF, "INF - response - %s\n", line);
        else
            _ixfs_log(record_->control, tag, IXFS_LOG_INF, "INF - response - %s\n", line);
        return Reading::goes_on;
    }

    AfterPass pass_ended() override
    {
        if (record_->mnt_path == nullptr)
            return AfterPass::exit_status_decides;
        _ixfs_control_t* const handle = record_->control;
        delete_mount_point(handle, tag, record_->mount_point);
        record_->mount_point[0] = '\0';
        _ixfs_log(handle, tag, IXFS_LOG_INF, "INF - looking for mount path: %s\n",
                  record_->mnt_path);
        _ixfs_log(handle, tag, IXFS_LOG_INF, "INF - unmounted mount path: %s\n", record_->mnt_path);
        return AfterPass::loop_is_left;
    }

private:
    _ixfs_mount_t* record_;
};

// Tells the validation thread to stop. It goes in its own time.
void stop_validation(_ixfs_control_t* handle, _ixfs_mount_t* record)
{
    _ixfs_log(handle, tag, IXFS_LOG_ERR, "INF - Lets terminate the event...\n");
    if (record->event != nullptr && record->event->signal() != 0)
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - ACE_Event::signal() failed, error = %d\n",
                  errno);
    _ixfs_log(handle, tag, IXFS_LOG_ERR, "INF - Event terminated...\n");
}

ec_status run_unmount_command(_ixfs_control_t* handle, _ixfs_mount_t* record)
{
    HelperCommand command = HelperCommand::unmount(*record);
    if ((handle->flags & IXFS_FLAG_UNMOUNT_CRED) != 0)
        command.cut_display(record->unmount_cred);
    UnmountConversation conversation(record);
    return run_helper(handle, tag, command, record->timeout, conversation);
}

ec_status fail(_ixfs_control_t* handle, _ixfs_mount_t* record, ec_status status)
{
    _ixfs_no_unmount(handle, record, status);
    return status;
}

} // namespace

void _ixfs_no_unmount(_ixfs_control_t* handle, _ixfs_mount_t* record, ec_status status)
{
    if (record != nullptr && record->mount_point[0] != '\0')
        unmount_locally(handle, record->mount_point);
    _ixfs_mount_delete(record);
    handle->mount = nullptr;
    handle->last_status = status;
}

ec_status ixfs_unmount(_ixfs_control_t* handle)
{
    if (handle == nullptr)
        return EC_INVALID_PARAMETER;
    if (_ixfs_is_invalid(handle))
        return fail(handle, nullptr, EC_INVALID_PARAMETER);
    _ixfs_mount_t* const record = handle->mount;
    if (record == nullptr)
        return fail(handle, nullptr, EC_OK);
    if (record->mount_point[0] == '\0') {
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - invalid parameter, missing mount point\n");
        return fail(handle, record, EC_INVALID_PARAMETER);
    }
    if ((handle->flags & IXFS_FLAG_UNMOUNT_CRED) != 0 && is_null_or_empty(record->unmount_cred)) {
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - invalid parameter, missing credentials\n");
        return fail(handle, record, EC_INVALID_PARAMETER);
    }

    stop_validation(handle, record);
    _ixfs_log(handle, tag, IXFS_LOG_INF, "INF - waiting for mount mutex\n");
    if (!acquire_mount_mutex(record)) {
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - unable to obtain mount mutex\n");
        return fail(handle, record, EC_SYSTEM_ERROR);
    }
    _ixfs_log(handle, tag, IXFS_LOG_INF, "INF - got the mount mutex\n");

    const ec_status status = run_unmount_command(handle, record);
    if (status != EC_OK)
        return fail(handle, record, status);
    _ixfs_mount_delete(record);
    handle->mount = nullptr;
    return EC_OK;
}
