#include "control.h"
#include "image_layout.h"
#include "mount_record.h"

namespace
{

constexpr char failed_to_build[] = "ERR - Failed to build image path: %s\n";

// Returns the directory name of a schedule type, or null for one that there is not.
const char* schedule_name(int schedule_type)
{
    switch (schedule_type) {
    case 0:
        return "full";
    case 1:
    case 4:
        return "incr";
    default:
        return nullptr;
    }
}

} // namespace

void buildImagePath(_ixfs_control_t* handle, const std::string& client, long backupTime,
                    int scheduleType, LmfPathname& path)
{
    constexpr char tag[] = "buildImagePath";
    path.makeFilename(backupsPathElement.text().c_str(), true);
    path.makeFilename(client.c_str(), true);
    path.makeFilename("allusers", true);
    const char* const schedule = schedule_name(scheduleType);
    if (schedule == nullptr) {
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - Invalid Schedule Type: %d.\n", scheduleType);
        throw EcStatusException(EC_INVALID_SCHEDULE, tag);
    }
    path.makeFilename(schedule, true);
    path.makeFilename(std::to_string(backupTime).c_str(), true);
}

ec_status buildPathToXml(_ixfs_control_t* handle, const std::string& client, long backupTime,
                         int scheduleType, LmfPathname& path)
{
    constexpr char tag[] = "buildPathToXml";
    if (handle->mount == nullptr || handle->mount->mount_point[0] == '\0') {
        _ixfs_log(handle, tag, IXFS_LOG_ERR,
                  "ERR - Mount or mount point not found.  Image unmounted?\n");
        return EC_INVALID_PARAMETER;
    }
    path.makeFilename(handle->mount->mount_point, false);
    try {
        buildImagePath(handle, client, backupTime, scheduleType, path);
    } catch (const EcStatusException& failure) {
        _ixfs_log(handle, tag, IXFS_LOG_ERR, failed_to_build, failure.what());
        return failure.status;
    }
    path.makeFilename("^^.^VIRTUAL_FILE_FSMAP", true);
    _ixfs_log(handle, tag, IXFS_LOG_INF, "INF - Reading VM Config file from: %s\n",
              path.display_str());
    return EC_OK;
}

void buildViewPath(_ixfs_control_t* handle, const std::string& client, long backupTime,
                   int scheduleType, LmfString& viewPath)
{
    LmfPathname path;
    try {
        buildImagePath(handle, client, backupTime, scheduleType, path);
    } catch (const EcStatusException& failure) {
        _ixfs_log(handle, "buildViewPath", IXFS_LOG_ERR, failed_to_build, failure.what());
        throw;
    }
    path.makeFilename(VIEW_DIR_NAME.text().c_str(), true);
    viewPath = path.text();
}
