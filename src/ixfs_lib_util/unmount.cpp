#include "unmount.h"

#include "control.h"
#include "folder_delete.h"
#include "helper_command.h"
#include "mount_record.h"
#include "mount_root.h"

#include <cerrno>
#include <fcntl.h>
#include <new>
#include <optional>
#include <sys/mount.h>
#include <utility>

namespace
{

// What is no absolute path names nothing that the helper has mounted. It would be looked for in the
// caller's working directory.
bool is_absolute(const Log& log, const char* mount_point)
{
    if (mount_point[0] == '/')
        return true;
    log.error("ERR - not an absolute path, not deleted: %s\n", mount_point);
    return false;
}

// Whether to delete what is in that directory is, or may be, to delete a backup through its mount.
bool leads_into_mount(const OpenFile& directory, const _ixfs_mount_t& record)
{
    return mount_root(directory.descriptor()) != MountRoot::no ||
           record.before.may_lack_mount_of(directory.descriptor(), mount_base);
}

void log_still_mounted(const Log& log, const char* path)
{
    log.error("ERR - still mounted, not deleted: %s\n", path);
}

// Removes the mount point directory, unless that would delete the backup through its mount. The
// look and the deletion are at the same open directory: somebody may mount on it in between.
void delete_mount_point(_ixfs_control_t* handle, const Log& log, const _ixfs_mount_t& record)
try {
    const char* const path = record.mount_point;
    // First without opening anything, for the sake of a server that hangs.
    const MountRoot at_first = mount_root(AT_FDCWD, path, 0);
    if (at_first == MountRoot::yes)
        return log_still_mounted(log, path);
    const Log deletion(handle, folder_delete_tag);
    const PathEnd end(path);
    OpenFile directory = end.is_reached() ? open_folder(end.parent(), end.name()) : OpenFile();
    if (!directory.is_open() && (at_first == MountRoot::no || leads_nowhere(errno)))
        return log_not_opened(deletion, path, errno);
    if (!directory.is_open() || leads_into_mount(directory, record)) // not open: a dead server
        return log_still_mounted(log, path);
    delete_folder(deletion, end.parent(), end.name(), std::move(directory), path);
} catch (const std::bad_alloc&) { // no exception may reach a C caller
}

void unmount_locally(_ixfs_control_t* handle, const _ixfs_mount_t& record)
{
    const char* const mount_point = record.mount_point;
    const Log log(handle, "_ixfs_umount()");
    if (!is_absolute(log, mount_point))
        return;
    log.info("INF - attempting to umount -f (%s)\n", mount_point);
    if (umount2(mount_point, MNT_FORCE) == -1)
        log.error("ERR - umount failed for %s, errno = %d\n", mount_point, errno);
    else
        log.info("INF - umount successful: %s\n", mount_point);
    delete_mount_point(handle, log, record);
}

ec_status fail(_ixfs_control_t* handle, _ixfs_mount_t* record, ec_status status)
{
    _ixfs_no_unmount(handle, record, status);
    return status;
}

// Tells the validation thread to stop. Does not wait for it.
void stop_watch(_ixfs_mount_t* record, const Log& log)
{
    log.error("INF - Lets terminate the event...\n");
    if (record->watch != nullptr && record->watch->stop() != 0)
        log.error("ERR - ACE_Event::signal() failed, error = %d\n", errno);
    log.error("INF - Event terminated...\n");
}

// Reads all that one run says. Returns its exit status, 0 if it reports none.
int read_answers(HelperOutput output, const ServerLog& log)
{
    int exit_status = 0;
    while (const char* const line = output.next_line()) {
        if (take_exit_status(line, exit_status))
            log.server_info("INF - response - %s\n", line);
        else
            log.info("INF - response - %s\n", line);
    }
    return exit_status;
}

// Runs the helper until it has unmounted, or failed, or the server was too busy for too long. With
// a mount path known, the first run is the last, whatever it says. Returns EC_OK or the failure to
// record.
ec_status run_unmount_command(_ixfs_control_t* handle, _ixfs_mount_t* record, const ServerLog& log)
{
    HelperCommand command = HelperCommand::unmount(*record);
    if ((handle->flags & IXFS_FLAG_UNMOUNT_CRED) != 0)
        command.cut_display(record->unmount_cred.get());
    HelperRun run(log, command, record->timeout);
    while (std::optional<HelperOutput> output = run.start()) {
        const int exit_status = read_answers(std::move(*output), log);
        if (record->mnt_path != nullptr) {
            if (is_absolute(log, record->mount_point))
                delete_mount_point(handle, log, *record);
            record->mount_point[0] = '\0';
            log.info("INF - looking for mount path: %s\n", record->mnt_path.get());
            log.info("INF - unmounted mount path: %s\n", record->mnt_path.get());
            break;
        }
        if (!run.again(exit_status))
            break;
    }
    return run.status();
}

} // namespace

void _ixfs_no_unmount(_ixfs_control_t* handle, _ixfs_mount_t* record, ec_status status)
{
    const bool ours = !is_inherited(handle);
    if (ours && record != nullptr && record->mount_point[0] != '\0')
        unmount_locally(handle, *record);
    handle->mount = nullptr;
    _ixfs_mount_delete(record);
    if (ours)
        handle->last_status = status;
}

ec_status ixfs_unmount(_ixfs_control_t* handle)
{
    if (handle == nullptr || is_inherited(handle))
        return EC_INVALID_PARAMETER;
    if (_ixfs_is_invalid(handle))
        return fail(handle, nullptr, EC_INVALID_PARAMETER);
    const ServerLog log(handle, "ixfs_unmount()");
    _ixfs_mount_t* const record = handle->mount;
    if (record == nullptr)
        return fail(handle, nullptr, EC_OK);
    if (record->mount_point[0] == '\0') {
        log.error("ERR - invalid parameter, missing mount point\n");
        return fail(handle, record, EC_INVALID_PARAMETER);
    }
    if ((handle->flags & IXFS_FLAG_UNMOUNT_CRED) != 0 &&
        is_null_or_empty(record->unmount_cred.get())) {
        log.error("ERR - invalid parameter, missing credentials\n");
        return fail(handle, record, EC_INVALID_PARAMETER);
    }

    stop_watch(record, log);
    log.info("INF - waiting for mount mutex\n");
    if (!record->mutex.wait()) {
        log.error("ERR - unable to obtain mount mutex\n");
        return fail(handle, record, EC_SYSTEM_ERROR);
    }
    log.info("INF - got the mount mutex\n");

    const ec_status status = run_unmount_command(handle, record, log);
    if (status != EC_OK)
        return fail(handle, record, status);
    handle->mount = nullptr;
    _ixfs_mount_delete(record);
    return EC_OK;
}
