#include "mount_record.h"

#include "control.h"

#include <algorithm>
#include <cerrno>

namespace
{

constexpr unsigned int longest_timeout = 60; // seconds

// Checks the arguments and copies them, in the order in which callers know the messages. Returns
// EC_OK, or after a line the status to record.
ec_status fill(_ixfs_mount_t* record, const Log& log, const ConnectionArguments& arguments)
{
    if (is_null_or_empty(arguments.server)) {
        log.error("ERR - invalid parameter, invalid media server\n");
        return EC_INVALID_PARAMETER;
    }
    record->server = copy_of(arguments.server);
    if (record->server == nullptr) {
        log.error("ERR - allocation for server name failed, error = %d\n", errno);
        return EC_NO_MEMORY;
    }

    if (arguments.port < 1) {
        log.error("ERR - invalid parameter, invalid port number\n");
        return EC_INVALID_PARAMETER;
    }
    record->port = arguments.port;

    if (is_null_or_empty(arguments.mount_cred) || is_null_or_empty(arguments.unmount_cred)) {
        log.error("ERR - invalid credentials\n");
        return EC_INVALID_PARAMETER;
    }
    record->mount_cred = copy_of(arguments.mount_cred);
    record->unmount_cred = copy_of(arguments.unmount_cred);
    if (record->mount_cred == nullptr || record->unmount_cred == nullptr) {
        log.error("ERR - allocation for credentials failed, error = %d\n", errno);
        return EC_NO_MEMORY;
    }

    record->timeout = static_cast<int>(std::min(arguments.timeout, longest_timeout));
    return EC_OK;
}

} // namespace

_ixfs_mount_t* attach_mount_record(_ixfs_control_t* handle, const Log& log,
                                   const ConnectionArguments& arguments)
{
    if (handle->mount != nullptr) {
        log.error("ERR - a mount has already been made\n");
        handle->last_status = EC_ALREADY_MOUNTED;
        return nullptr;
    }
    handle->mount = new _ixfs_mount_t{};
    if (handle->mount == nullptr) {
        log.error("ERR - calloc failed for mount structure, error = %d\n", errno);
        _ixfs_no_mount(handle, EC_NO_MEMORY);
        return nullptr;
    }
    handle->mount->control = handle;
    const ec_status status = fill(handle->mount, log, arguments);
    if (status != EC_OK) {
        _ixfs_no_mount(handle, status);
        return nullptr;
    }
    return handle->mount;
}

void _ixfs_mount_delete(_ixfs_mount_t* record)
{
    if (record == nullptr)
        return;
    if (is_inherited(record->control)) {
        record->mutex.forget();
        record->watch.detach(); // stays: its thread was not copied, and may have locked the event
    } else if (record->watch != nullptr) {
        record->watch->stop(); // whoever deletes the record, its thread must end
    }
    delete record;
}
