#include "configuration.h"
#include "control.h"
#include "image_paths.h"
#include "mount_record.h"
#include "view.h"

namespace
{

// One handle with at most one mount, both ended on every path, an exception's included.
class Session
{
public:
    explicit Session(const LogInfo* log_info) : handle_(make_handle(log_info)) {}
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    ~Session()
    {
        if (mounted_)
            ixfs_unmount(handle_);
        ixfs_term(handle_);
    }

    _ixfs_control_t* handle() const { return handle_; }

    // Returns EC_OK, or why nothing is mounted.
    ec_status mount(const MountCreds& creds)
    {
        mounted_ = ixfs_mount(handle_, creds.mount_cred, creds.unmount_cred, creds.port,
                              creds.server, creds.timeout, creds.reserved) != nullptr;
        return mounted_ ? EC_OK : ixfs_last_error(handle_);
    }

private:
    static _ixfs_control_t* make_handle(const LogInfo* log_info)
    {
        const bool logs = log_info != nullptr && log_info->log_callback != nullptr;
        return ixfs_init(IXFS_FLAG_UNMOUNT_CRED, logs ? log_info->log_context : nullptr,
                         logs ? log_info->log_callback : nullptr, nullptr, nullptr);
    }

    _ixfs_control_t* handle_; // null when memory is short
    bool mounted_ = false;
};

// Finds the image in the handle's mount and reads its VM configuration.
ec_status read_image(_ixfs_control_t* handle, const MountCreds& creds, Image& image,
                     ImageIdentity& identity, ImageLocation& location, std::string& vmConfig)
{
    identity.schedule_type = creds.schedule_type;
    ec_status status =
        makeClientAndBackupTime(handle, creds.backup_id, identity.client, identity.backup_time);
    if (status == EC_OK)
        status = locate_image(handle, identity, location);
    if (status == EC_OK)
        status = readXml(handle, image, image.file(location.configuration_file), vmConfig);
    return status;
}

} // namespace

ec_status ixfs_prepare_vmir(const MountCreds& creds, std::vector<std::string>& entries,
                            LogInfo* logInfo, std::string& vmConfig, std::vector<std::string>& out,
                            bool newDiskUuids)
{
    Session session(logInfo);
    _ixfs_control_t* const handle = session.handle();
    if (handle == nullptr)
        return EC_NO_HANDLE;
    ec_status status = session.mount(creds);
    if (status != EC_OK)
        return status;

    // Ends before the session unmounts: what it has open would keep the image mounted.
    Image image(handle->mount != nullptr ? handle->mount->mount_point : "");
    ImageIdentity identity;
    ImageLocation location;
    status = read_image(handle, creds, image, identity, location, vmConfig);
    // At this step whatever the status is; only the building of the view looks at it.
    if (newDiskUuids)
        handle->flags |= IXFS_FLAG_NEW_DISK_UUID;
    if (status != EC_OK)
        return status;
    return create_view_vmir(handle, image, entries, identity, location, out);
}
