#include "control.h"
#include "helper_command.h"
#include "mount_record.h"

#include <cerrno>
#include <cstdio>
#include <optional>
#include <utility>

namespace
{

constexpr mode_t mount_directory_mode = 0700;

char* fail(_ixfs_control_t* handle, ec_status status)
{
    _ixfs_no_mount(handle, status);
    return nullptr;
}

// The local directory that the helper is to mount on.
struct MountDirectory {
    char path[text_size];
    int creation_result;
};

// Returns nothing if the directory cannot be used; the reason was logged.
std::optional<MountDirectory> make_mount_directory(_ixfs_control_t* handle, const Log& log,
                                                   const char* server)
{
    MountDirectory directory{};
    uint32_t segments = 0;
    directory.creation_result =
        _ixfs_folder_create(handle, mount_base, server, &segments, mount_directory_mode);
    const int error = errno;
    std::snprintf(directory.path, sizeof(directory.path), "%s/%s", mount_base, server);
    if (error == EEXIST) {
        // A parent that was there already sets errno, too, though this server's directory is new.
        // Callers know the line as one that every mount but a host's first logs.
        log.info("INF - Create mount dir %s already exists.\n", directory.path);
    } else if (directory.creation_result != 0) {
        log.info("INF - Create mount dir %s failed, error = %d.\n", directory.path, error);
        return std::nullopt;
    }
    log.info("INF - Successfully setup mount directory: %s.\n", directory.path);
    return directory;
}

// What the helper reported, beside what went into the record.
struct MountReport {
    int exit_status;
    bool mount_path_lost; // the latest mount path was reported, but there was no memory for it
};

// Returns the text after the last "=" of a line that has one, or null if it is empty.
const char* value_of(const char* line)
{
    const char* const value = std::strrchr(line, '=') + 1;
    return *value != '\0' ? value : nullptr;
}

void take_mount_path(_ixfs_mount_t* record, const Log& log, const char* line, MountReport& report)
{
    const char* const value = value_of(line);
    if (value == nullptr)
        return;                            // what was reported before stays
    record->mnt_path = copy_of(value + 1); // its first character, a separator, is left out
    report.mount_path_lost = record->mnt_path == nullptr;
    if (report.mount_path_lost)
        log.error("ERR - allocation for mount path failed, error = %d\n", errno);
}

void take_mount_point(_ixfs_mount_t* record, const Log& log, const char* line)
{
    log.info("MOUNTPOINT= %s\n", line);
    const char* const value = value_of(line);
    if (value != nullptr)
        strlcpy(record->mount_point, value, sizeof(record->mount_point));
}

// Reads one run's answers, up to its exit status. If the run reports none, the exit status keeps
// its value.
void read_answers(HelperOutput output, _ixfs_mount_t* record, const Log& log, MountReport& report)
{
    while (const char* const line = output.next_line()) {
        log.info("INF - response - %s\n", line);
        if (take_exit_status(line, report.exit_status))
            return;
        if (std::strstr(line, "MNTPATH=") != nullptr && record->mount_point[0] == '\0')
            take_mount_path(record, log, line, report);
        if (std::strstr(line, "MOUNTPOINT=") != nullptr)
            take_mount_point(record, log, line);
    }
}

// Runs the helper until it has mounted, or failed, or the server was too busy for too long. Returns
// EC_OK or the failure to record.
ec_status run_mount_command(_ixfs_mount_t* record, const Log& log, const char* directory,
                            MountReport& report)
{
    HelperCommand command = HelperCommand::mount(*record, directory);
    command.cut_display(record->mount_cred.get());
    HelperRun run(log, command, record->timeout);
    while (std::optional<HelperOutput> output = run.start()) {
        read_answers(std::move(*output), record, log, report);
        if (record->mnt_path != nullptr) {
            log.info("INF - mount point: %s\n", record->mount_point);
            if (record->mount_point[0] != '\0')
                break; // the exit status does not matter any more: find_flaw looks into the mount
        }
        if (!run.again(report.exit_status))
            break;
    }
    return run.status();
}

// Returns what is wrong with a mount that the helper has made, or EC_OK. Only a mount whose path
// the helper reported is looked at. If that path could not be stored, the mount would never be
// looked at; so that is a flaw, too.
ec_status find_flaw(_ixfs_mount_t* record, const MountReport& report)
{
    if (report.mount_path_lost)
        return EC_NO_MEMORY;
    if (record->mnt_path != nullptr && _ixfs_mount_validate(record->control, record) == 0)
        return EC_HELPER_FAILED;
    return EC_OK;
}

} // namespace

char* ixfs_mount(_ixfs_control_t* handle, const char* mount_cred, const char* unmount_cred,
                 int port, const char* server, unsigned int timeout, const char* /*reserved*/)
{
    if (_ixfs_is_invalid(handle) || is_inherited(handle))
        return nullptr;
    const ServerLog log(handle, "ixfs_mount()");
    _ixfs_mount_t* const record =
        attach_mount_record(handle, log, {mount_cred, unmount_cred, port, server, timeout});
    if (record == nullptr)
        return nullptr;
    if (!record->mutex.open_and_wait(log))
        return fail(handle, EC_SYSTEM_ERROR);

    const std::optional<MountDirectory> directory =
        make_mount_directory(handle, log, record->server.get());
    if (!directory)
        return fail(handle, EC_MOUNT_DIRECTORY);

    // A helper that never reports an exit status is judged by the directory's creation.
    MountReport report{directory->creation_result, false};
    record->before.read();
    const ec_status status = run_mount_command(record, log, directory->path, report);
    if (status != EC_OK)
        return fail(handle, status);
    if (record->mount_point[0] == '\0') {
        log.error("ERR - nothing is mounted\n");
        return fail(handle, EC_SYSTEM_ERROR);
    }
    const ec_status flaw = find_flaw(record, report);
    record->mutex.release();
    if (flaw != EC_OK) {
        ixfs_unmount(handle);
        return fail(handle, flaw);
    }
    log.info("INF - mount point - %s\n", record->mount_point);
    start_mount_watch(record, log);
    return record->mount_point;
}
