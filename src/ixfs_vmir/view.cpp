#include "view.h"

#include "bounded_text.h"
#include "control.h"
#include "copy_or_link.h"
#include "disk_checks.h"
#include "etime_retry.h"
#include "files.h"
#include "folder_delete.h"
#include "image_layout.h"
#include "log.h"
#include "path_text.h"

#include <cerrno>
#include <sys/stat.h>
#include <utility>

namespace
{

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

// Makes the view folder. The folders above it are there: the configuration was read from below
// them. That they are is seen by the open image folder; to try and make each took 30 microseconds.
bool create_view_folder(const OpenView& view, const ImageLocation& location)
{
    const LmfPathname image_folder =
        convertUnixPathToPlatformPath(view.image().mount_point(), location.folder);
    const long last = NameSegments(view.place().path()).count();
    const auto make = [&](int number, const char* /*path*/) {
        constexpr mode_t mode = 0755;
        if (number == last)
            return view.image().make_folder(view.place(), mode);
        if (view.image().folder(view.place().folder()) != nullptr)
            errno = EEXIST;
        return -1;
    };
    uint32_t created = 0;
    return create_folders(view.handle(), image_folder.text().c_str(), VIEW_DIR_NAME.text().c_str(),
                          &created, make);
}

// Whether the view folder's name is taken by something else, such as a link, which could lead
// anywhere.
bool is_no_folder(OpenView& view)
{
    return call_again_on_etime([&] { return view.open() ? 0 : -1; }) != 0 && errno == ENOTDIR;
}

// Makes the folder, or uses the one that an earlier preparation has left, with all that is in it.
void makeViewFolder(OpenView& view, const ImageLocation& location)
{
    constexpr char step[] = "makeViewFolder";
    constexpr int failed = 1; // as of _ixfs_folder_create
    const Log log(view.handle(), step);
    const char* const path = view.place().path();
    const int result = call_again_on_etime([&] { return view.image().access(view.place()); });
    const bool exists = report_access(view.handle(), path, result);
    if ((!exists && !create_view_folder(view, location)) || is_no_folder(view)) {
        log.error("ERR - Could not create folder for view: %s\n", path);
        throw EcStatusException(static_cast<ec_status>(failed), step);
    }
    if (exists)
        log.info("INF - Using existing folder for view: %s\n", path);
}

// Removes the view folder with all that is in it, also what was there before. Empties the folder
// that the disks were put into, even if something else has its name by now.
void delete_view_folder(OpenView& view)
{
    const Log log(view.handle(), folder_delete_tag);
    const ImageFile& place = view.place();
    const char* const path = place.path();
    OpenFile folder = view.open() ? open_folder(view.folder(), ".") : OpenFile();
    const ImageFolder* const around =
        folder.is_open() ? view.image().folder(place.folder()) : nullptr;
    if (around == nullptr)
        log_not_opened(log, path, errno);
    else
        delete_folder(log, around->open.descriptor(), place.name(), std::move(folder), path);
}

// The descriptor comes first: it is written anew each time, while a data link, once made, stays.
void copyAndLinkOneVmirPath(OpenView& view, const VmirPath& disk)
{
    constexpr char step[] = "copyAndLinkOneVmirPath";
    const Log log(view.handle(), step);
    // Descriptors name their data file without a folder.
    const LmfString data_name = default_narrow(last_segment_of(disk.viewVmdkPath.text().c_str()));
    ec_status status =
        copyOrLinkPath(view, disk.originalDescPath, disk.viewDescPath, false, true, data_name);
    if (status != EC_OK) {
        log.error("ERR - Failed to copy src .desc: %s to %s\n", disk.originalDescPath.utf8_str(),
                  disk.viewDescPath.utf8_str());
        log.error("      with new .vmdk name: %s\n", data_name.utf8_str());
        throw EcStatusException(status, step);
    }
    status =
        copyOrLinkPath(view, disk.originalVmdkPath, disk.viewVmdkPath, true, false, LmfString());
    if (status != EC_OK) {
        log.error("ERR - Failed to link src .vmdk: %s to %s\n", disk.originalVmdkPath.utf8_str(),
                  disk.viewVmdkPath.utf8_str());
        throw EcStatusException(status, step);
    }
}

} // namespace

ec_status create_view_vmir(_ixfs_control_t* handle, Image& image, std::vector<std::string>& entries,
                           const ImageIdentity& identity, const ImageLocation& location,
                           std::vector<std::string>& out)
{
    const Log log(handle, "create_view_vmir");
    std::vector<VmirPath> records;
    OpenView view(handle, image, location.view_folder);
    try {
        LmfString view_folder =
            location.view_folder; // a copy, for an interface that takes no const
        populateVmirPathVector(handle, entries, view_folder, records);
        view.set_checked_links(checkDisks(log, image, location, records));
        createGlobalLockForView(handle, identity.backup_time);
        makeViewFolder(view, location);
    } catch (const EcStatusException& failure) {
        log.error("ERR - Create view for VM Instant Recovery has failed: %d.\n", failure.status);
        return failure.status;
    }

    // From here on a failure takes the folder away: half a view must not look like a whole one.
    try {
        for (const VmirPath& disk : records)
            copyAndLinkOneVmirPath(view, disk);
    } catch (const EcStatusException& failure) {
        log.error("ERR - An internal error has occurred: %s\n", failure.what());
        delete_view_folder(view);
        return failure.status;
    }
    convertVmdkPathsListToCharArrays(records, out);
    return EC_OK;
}
