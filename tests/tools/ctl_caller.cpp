#include "ctl_caller.h"

#include "ixfs.h"
#include "ixfs_vmir.h"

#include <string>
#include <vector>

namespace
{

void ignore_line(int, const char*, const char*) {}

constexpr int port = 4010;
constexpr unsigned int timeout = 30; // seconds

} // namespace

int caller_mount(const char* server)
{
    _ixfs_control_t* const handle = ixfs_init(0, nullptr, ignore_line, nullptr, nullptr);
    const char* const mounted =
        ixfs_mount(handle, "mount-s3cret", "unmount-s3cret", port, server, timeout, nullptr);
    return mounted != nullptr ? EC_OK : ixfs_last_error(handle);
}

int caller_lock_view()
{
    _ixfs_control_t* const handle = ixfs_init(0, nullptr, ignore_line, nullptr, nullptr);
    _ixfs_view_t* const view = _ixfs_view_create(handle);
    char base_name[1024] = "";
    return _ixfs_view_lock(handle, view, 1, base_name, sizeof(base_name)) == 1 ? EC_OK
                                                                               : EC_VIEW_NOT_LOCKED;
}

int caller_prepare(const char* server, const char* backup_id, const char* const* disks, int count)
{
    MountCreds creds{};
    creds.server = server;
    creds.port = port;
    creds.timeout = timeout;
    creds.mount_cred = "mount-s3cret";
    creds.unmount_cred = "unmount-s3cret";
    creds.backup_id = backup_id;
    std::vector<std::string> entries(disks, disks + count);
    std::string configuration;
    std::vector<std::string> out;
    return ixfs_prepare_vmir(creds, entries, nullptr, configuration, out, false);
}
