#include "control.h"
#include "helper_command.h"
#include "mount_record.h"
#include "mount_validation.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace
{

constexpr char tag[] = "ixfs_mount()";

constexpr char mount_base[] = "/usr/varnis/var/ixfs";
constexpr mode_t mount_directory_mode = 0700;

// Returns the text after the last "=" of a line that has one, or null where it is empty.
const char* value_of(const char* line)
{
    const char* const value = std::strrchr(line, '=') + 1;
    return *value != '\0' ? value : nullptr;
}

// The helper's answers to a mount: it reports where it mounted, and then how it went.
class MountConversation final : public HelperConversation
{
public:
    // A helper that reports no exit status leaves the one before it standing: that of the run
    // before, or at first the directory creation's result.
    MountConversation(_ixfs_mount_t* record, int first_exit_status) : record_(record)
    {
        exit_status = first_exit_status;
    }

    void pass_begins() override {}

    Reading response(const char* line) override
    {
        _ixfs_log(record_->control, tag, IXFS_LOG_INF, "INF - response - %s\n", line);
        if (take_exit_status(line))
            return Reading::stops;
        if (std::strstr(line, "MNTPATH=") != nullptr && record_->mount_point[0] == '\0')
            take_mount_path(line);
        if (std::strstr(line, "MOUNTPOINT=") != nullptr)
            take_mount_point(line);
        return Reading::goes_on;
    }

    // Only a helper that reports a mount path has its mount looked at.
    AfterPass pass_ended() override
    {
        if (record_->mnt_path == nullptr)
            return AfterPass::exit_status_decides;
        _ixfs_log(record_->control, tag, IXFS_LOG_INF, "INF - mount point: %s\n",
                  record_->mount_point);
        if (record_->mount_point[0] == '\0')
            return AfterPass::exit_status_decides;
        if (_ixfs_mount_validate(record_->control, record_) == 0)
            flaw = EC_HELPER_FAILED;
        return AfterPass::loop_is_left;
    }

    ec_status flaw = EC_OK; // else what is wrong with a mount that the helper has made

private:
    void take_mount_path(const char* line)
    {
        const char* const value = value_of(line);
        if (value == nullptr)
            return;
        // its first character, a separator, is not part of the path
        std::free(std::exchange(record_->mnt_path, strdup(value + 1)));
        flaw = EC_OK;
        if (record_->mnt_path == nullptr) {
            _ixfs_log(record_->control, tag, IXFS_LOG_ERR,
                      "ERR - allocation for mount path failed, error = %d\n", errno);
            flaw = EC_NO_MEMORY; // without its path the mount would go unvalidated
        }
    }

    void take_mount_point(const char* line)
    {
        _ixfs_log(record_->control, tag, IXFS_LOG_INF, "MOUNTPOINT= %s\n", line);
        const char* const value = value_of(line);
        if (value != nullptr)
            strlcpy(record_->mount_point, value, sizeof(record_->mount_point));
    }

    _ixfs_mount_t* record_;
};

char* fail(_ixfs_control_t* handle, ec_status status)
{
    _ixfs_no_mount(handle, status);
    return nullptr;
}

struct MountDirectory {
    char path[text_size];
    int creation_result;
    bool usable;
};

// Makes the local directory of a server. What errno holds afterwards is the creation's word: a
// parent that was there already makes the whole directory count as present.
MountDirectory make_mount_directory(_ixfs_control_t* handle, const char* server)
{
    MountDirectory directory{};
    uint32_t segments = 0;
    directory.creation_result =
        _ixfs_folder_create(handle, mount_base, server, &segments, mount_directory_mode);
    const int error = errno;
    std::snprintf(directory.path, sizeof(directory.path), "%s/%s", mount_base, server);
    if (error == EEXIST) {
        _ixfs_log(handle, tag, IXFS_LOG_INF, "INF - Create mount dir %s already exists.\n",
                  directory.path);
    } else if (directory.creation_result != 0) {
        _ixfs_log(handle, tag, IXFS_LOG_INF, "INF - Create mount dir %s failed, error = %d.\n",
                  directory.path, error);
        return directory;
    }
    _ixfs_log(handle, tag, IXFS_LOG_INF, "INF - Successfully setup mount directory: %s.\n",
              directory.path);
    directory.usable = true;
    return directory;
}

} // namespace

char* ixfs_mount(_ixfs_control_t* handle, const char* mount_cred, const char* unmount_cred,
                 int port, const char* server, unsigned int timeout, const char* /*reserved*/)
{
    if (_ixfs_is_invalid(handle))
        return nullptr;
    _ixfs_mount_t* const record =
        attach_mount_record(handle, tag, {mount_cred, unmount_cred, port, server, timeout});
    if (record == nullptr || !take_new_mount_mutex(handle, tag, record))
        return nullptr;

    const MountDirectory directory = make_mount_directory(handle, record->server);
    if (!directory.usable)
        return fail(handle, EC_MOUNT_DIRECTORY);

    HelperCommand command = HelperCommand::mount(*record, directory.path);
    command.cut_display(record->mount_cred);
    MountConversation conversation(record, directory.creation_result);
    const ec_status status = run_helper(handle, tag, command, record->timeout, conversation);
    if (status != EC_OK)
        return fail(handle, status);
    if (record->mount_point[0] == '\0') {
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - nothing is mounted\n");
        return fail(handle, EC_SYSTEM_ERROR);
    }
    if (conversation.flaw != EC_OK) {
        release_mount_mutex(record);
        ixfs_unmount(handle);
        return fail(handle, conversation.flaw);
    }
    release_mount_mutex(record);
    _ixfs_log(handle, tag, IXFS_LOG_INF, "INF - mount point - %s\n", record->mount_point);
    start_mount_validation(handle, tag, record);
    return record->mount_point;
}
