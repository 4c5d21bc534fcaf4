#include "control.h"
#include "mount_record.h"

#include <cerrno>

int ixfs_recreate_minimal_context(_ixfs_control_t* handle, const char* mount_cred,
                                  const char* unmount_cred, int port, const char* server,
                                  unsigned int timeout, const char* mnt_path)
{
    constexpr char tag[] = "ixfs_recreate_minimal_context()";
    constexpr int failed = -1;
    if (_ixfs_is_invalid(handle))
        return failed;
    _ixfs_mount_t* const record =
        attach_mount_record(handle, tag, {mount_cred, unmount_cred, port, server, timeout});
    if (record == nullptr)
        return failed;

    if (mnt_path == nullptr) {
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - invalid parameter, missing server name\n");
        handle->last_status = EC_INVALID_PARAMETER; // the record stays, for ixfs_unmount to free
        return EC_INVALID_PARAMETER;
    }
    record->mnt_path = strdup(mnt_path);
    if (record->mnt_path == nullptr) {
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - allocation for mount path failed, error = %d\n",
                  errno);
        _ixfs_no_mount(handle, EC_NO_MEMORY);
        return EC_NO_MEMORY;
    }

    // Holding the mutex once means that nobody on the host is in the middle of a mount or unmount.
    if (!take_new_mount_mutex(handle, tag, record))
        return failed;
    release_mount_mutex(record);
    return 0;
}
