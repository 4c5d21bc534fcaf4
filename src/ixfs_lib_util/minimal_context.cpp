#include "control.h"
#include "mount_record.h"

#include <cerrno>

int ixfs_recreate_minimal_context(_ixfs_control_t* handle, const char* mount_cred,
                                  const char* unmount_cred, int port, const char* server,
                                  unsigned int timeout, const char* mnt_path)
{
    constexpr int failed = -1;
    if (_ixfs_is_invalid(handle) || is_inherited(handle))
        return failed;
    const ServerLog log(handle, "ixfs_recreate_minimal_context()");
    _ixfs_mount_t* const record =
        attach_mount_record(handle, log, {mount_cred, unmount_cred, port, server, timeout});
    if (record == nullptr)
        return failed;

    if (mnt_path == nullptr) {
        log.error("ERR - invalid parameter, missing server name\n");
        handle->last_status = EC_INVALID_PARAMETER; // the record stays, for ixfs_unmount to free
        return EC_INVALID_PARAMETER;
    }
    record->mnt_path = copy_of(mnt_path);
    if (record->mnt_path == nullptr) {
        log.error("ERR - allocation for mount path failed, error = %d\n", errno);
        _ixfs_no_mount(handle, EC_NO_MEMORY);
        return EC_NO_MEMORY;
    }

    // Holding the mutex once means that nobody on the host is in the middle of a mount or unmount.
    if (!record->mutex.open_and_wait(log)) {
        _ixfs_no_mount(handle, EC_SYSTEM_ERROR);
        return failed;
    }
    record->mutex.release();
    return 0;
}
