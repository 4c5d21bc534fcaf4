#include "view.h"

#include "bounded_text.h"
#include "control.h"
#include "copy_or_link.h"
#include "image_layout.h"
#include "log.h"
#include "mount_record.h"

#include <filesystem>

namespace
{

LmfPathname under_mount_point(const _ixfs_control_t* handle, const LmfString& path)
{
    return convertUnixPathToPlatformPath(default_narrow(handle->mount->mount_point), path);
}

std::string normal_form(const LmfString& path)
{
    return std::filesystem::path(path.utf8_str()).lexically_normal().native();
}

bool lies_below(const LmfString& path, const LmfString& folder)
{
    const std::string prefix = normal_form(folder) + '/';
    return normal_form(path).compare(0, prefix.size(), prefix) == 0;
}

// Refuses what would write over one of the VM's own files: a disk that lies in the view folder, and
// a disk whose descriptor would get the name of another's data link ("a-flat" beside "a").
void checkDisks(const Log& log, const LmfString& view_folder, const std::vector<VmirPath>& records)
{
    constexpr char step[] = "checkDisks";
    std::set<LmfString> descriptors;
    for (const VmirPath& disk : records)
        descriptors.insert(disk.viewDescPath);
    for (const VmirPath& disk : records) {
        const char* const path = disk.datastoreDescPath.utf8_str();
        if (lies_below(disk.originalDescPath, view_folder)) {
            log.error("ERR - Disk lies in the view folder: %s\n", path);
            throw EcStatusException(EC_INVALID_PARAMETER, step);
        }
        if (descriptors.count(disk.viewVmdkPath) != 0) {
            log.error("ERR - Another disk's descriptor has the name of the data file of: %s\n",
                      path);
            throw EcStatusException(EC_INVALID_PARAMETER, step);
        }
    }
}

// Two processes that prepare the same image at once get different locks, by their numbers. The lock
// tells others that the image is in use; it does not keep them out of the folder.
void createGlobalLockForView(_ixfs_control_t* handle, long backup_time)
{
    constexpr char step[] = "createGlobalLockForView";
    const Log log(handle, step);
    _ixfs_view_t* const view = _ixfs_view_create(handle);
    if (view == nullptr) {
        log.error("ERR - Failed to create view\n");
        throw EcStatusException(EC_VIEW_NOT_CREATED, step);
    }
    char base_name[text_size]; // unused: the folder has a name of its own
    if (_ixfs_view_lock(handle, view, backup_time, base_name, sizeof(base_name)) == 0) {
        log.error("ERR - Failed to get lock\n");
        throw EcStatusException(EC_VIEW_NOT_LOCKED, step);
    }
}

// Makes the folder, or uses the one that an earlier preparation has left, with all that is in it.
void makeViewFolder(_ixfs_control_t* handle, const ImageLocation& location)
{
    constexpr char step[] = "makeViewFolder";
    const Log log(handle, step);
    const LmfPathname view_folder = under_mount_point(handle, location.view_folder);
    if (_ixfs_file_exists(handle, view_folder.text().c_str()) != 0) {
        log.info("INF - Using existing folder for view: %s\n", view_folder.display_str());
        return;
    }
    const LmfPathname image_folder = under_mount_point(handle, location.folder);
    uint32_t created = 0;
    const int result = _ixfs_folder_create(handle, image_folder.text().c_str(),
                                           VIEW_DIR_NAME.text().c_str(), &created, 0755);
    if (result != 0) {
        log.error("ERR - Could not create folder for view: %s\n", view_folder.display_str());
        throw EcStatusException(static_cast<ec_status>(result), step);
    }
}

// What stands behind the last "/": descriptors name their data file without a folder.
LmfString file_name_of(const LmfString& path)
{
    LmfPathname pathname;
    pathname.makeFilename(path.text().c_str(), false);
    return default_narrow(pathname.last_segment());
}

// The descriptor comes first: it is written anew each time, while a data link, once made, stays.
void copyAndLinkOneVmirPath(_ixfs_control_t* handle, const VmirPath& disk)
{
    constexpr char step[] = "copyAndLinkOneVmirPath";
    const Log log(handle, step);
    const LmfString data_name = file_name_of(disk.viewVmdkPath);
    ec_status status =
        copyOrLinkPath(handle, disk.originalDescPath, disk.viewDescPath, false, true, data_name);
    if (status != EC_OK) {
        log.error("ERR - Failed to copy src .desc: %s to %s\n", disk.originalDescPath.utf8_str(),
                  disk.viewDescPath.utf8_str());
        log.error("      with new .vmdk name: %s\n", data_name.utf8_str());
        throw EcStatusException(status, step);
    }
    status =
        copyOrLinkPath(handle, disk.originalVmdkPath, disk.viewVmdkPath, true, false, LmfString());
    if (status != EC_OK) {
        log.error("ERR - Failed to link src .vmdk: %s to %s\n", disk.originalVmdkPath.utf8_str(),
                  disk.viewVmdkPath.utf8_str());
        throw EcStatusException(status, step);
    }
}

} // namespace

ec_status create_view_vmir(_ixfs_control_t* handle, std::vector<std::string>& entries,
                           const ImageIdentity& image, const ImageLocation& location,
                           std::vector<std::string>& out)
{
    const Log log(handle, "create_view_vmir");
    std::vector<VmirPath> records;
    try {
        LmfString view_folder =
            location.view_folder; // a copy, for an interface that takes no const
        populateVmirPathVector(handle, entries, view_folder, records);
        checkDisks(log, location.view_folder, records);
        createGlobalLockForView(handle, image.backup_time);
        makeViewFolder(handle, location);
    } catch (const EcStatusException& failure) {
        log.error("ERR - Create view for VM Instant Recovery has failed: %d.\n", failure.status);
        return failure.status;
    }

    // From here on a failure takes the folder away: half a view must not look like a whole one.
    try {
        for (const VmirPath& disk : records)
            copyAndLinkOneVmirPath(handle, disk);
    } catch (const EcStatusException& failure) {
        log.error("ERR - An internal error has occurred: %s\n", failure.what());
        _ixfs_folder_delete(handle, under_mount_point(handle, location.view_folder).text().c_str());
        return failure.status;
    }
    convertVmdkPathsListToCharArrays(records, out);
    return EC_OK;
}
