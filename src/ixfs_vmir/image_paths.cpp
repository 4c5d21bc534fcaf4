#include "image_paths.h"

#include "control.h"
#include "image_layout.h"
#include "log.h"
#include "mount_record.h"

namespace
{

constexpr char failed_to_build[] = "ERR - Failed to build image path: %s\n";

// Returns the directory name of a schedule type, or null for an unknown type.
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

bool is_mounted(const _ixfs_control_t* handle)
{
    return handle->mount != nullptr && handle->mount->mount_point[0] != '\0';
}

// Sets `folder` to the image directory, or after a failure to the part before the schedule.
// Failures are logged.
ec_status build_folder(_ixfs_control_t* handle, const Log& log, const ImageIdentity& image,
                       LmfPathname& folder)
{
    try {
        buildImagePath(handle, image.client, image.backup_time, image.schedule_type, folder);
        return EC_OK;
    } catch (const EcStatusException& failure) {
        log.error(failed_to_build, failure.what());
        return failure.status;
    }
}

LmfPathname below(LmfPathname folder, const std::string& name)
{
    folder.makeFilename(name.c_str(), true);
    return folder;
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
        Log(handle, tag).error("ERR - Invalid Schedule Type: %d.\n", scheduleType);
        throw EcStatusException(EC_INVALID_SCHEDULE, tag);
    }
    path.makeFilename(schedule, true);
    path.makeFilename(std::to_string(backupTime).c_str(), true);
}

ec_status locate_image(_ixfs_control_t* handle, const ImageIdentity& image, ImageLocation& location)
{
    const Log log(handle, "buildPathToXml");
    if (!is_mounted(handle)) {
        log.error("ERR - Mount or mount point not found.  Image unmounted?\n");
        return EC_INVALID_PARAMETER;
    }
    LmfPathname folder;
    const ec_status status = build_folder(handle, log, image, folder);
    // Set also after a failure, as far as it goes: callers of buildPathToXml see it.
    location.configuration.makeFilename(handle->mount->mount_point, false);
    location.configuration.makeFilename(folder.text().c_str(), true);
    if (status != EC_OK)
        return status;
    constexpr char configuration_name[] = "^^.^VIRTUAL_FILE_FSMAP";
    location.configuration.makeFilename(configuration_name, true);
    location.configuration_file = below(folder, configuration_name).text();
    location.folder = folder.text();
    location.view_folder = below(folder, VIEW_DIR_NAME.text()).text();
    log.info("INF - Reading VM Config file from: %s\n", location.configuration.display_str());
    return EC_OK;
}

ec_status buildPathToXml(_ixfs_control_t* handle, const std::string& client, long backupTime,
                         int scheduleType, LmfPathname& path)
{
    ImageLocation location;
    const ec_status status = locate_image(handle, {client, backupTime, scheduleType}, location);
    if (!location.configuration.text().empty()) // as far as it could be built
        path = location.configuration;
    return status;
}

void buildViewPath(_ixfs_control_t* handle, const std::string& client, long backupTime,
                   int scheduleType, LmfString& viewPath)
{
    LmfPathname folder;
    try {
        buildImagePath(handle, client, backupTime, scheduleType, folder);
    } catch (const EcStatusException& failure) {
        Log(handle, "buildViewPath").error(failed_to_build, failure.what());
        throw;
    }
    viewPath = below(folder, VIEW_DIR_NAME.text()).text();
}
