#include "copy_or_link.h"

#include "control.h"
#include "image_layout.h"
#include "log.h"
#include "mount_record.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace
{

ec_status reuse(const Log& log, const LmfPathname& destination)
{
    log.info("INF - File already exists, reusing: %s\n", destination.display_str());
    return EC_OK;
}

// Returns false also when one of them cannot be looked at.
bool is_same_file(const LmfPathname& one, const LmfPathname& other)
{
    std::error_code unknown;
    return std::filesystem::equivalent(one.text(), other.text(), unknown);
}

// A link that another process made since it was found missing is as good as one's own: both prepare
// the same image. Failing would remove the view folder with the other's disks.
ec_status link_file(_ixfs_control_t* handle, const Log& log, const LmfPathname& source,
                    const LmfPathname& destination)
{
    constexpr ec_status failed = EC_SYSTEM_ERROR;
    const int result =
        _ixfs_create_hard_link(handle, source.text().c_str(), destination.text().c_str());
    if (result == EEXIST && is_same_file(source, destination))
        return reuse(log, destination);
    if (result != 1) { // 1 is success, and EPERM, too: see _ixfs_create_hard_link
        log.error("ERR - Could not create link for %s, error %d\n", destination.display_str(),
                  failed);
        return failed;
    }
    log.info("INF - Created link file: %s\n", destination.display_str());
    return EC_OK;
}

ec_status copy_descriptor(_ixfs_control_t* handle, const Log& log, const LmfPathname& source,
                          const LmfPathname& destination, const LmfString& extent_name)
{
    constexpr ec_status failed = EC_FILE_NOT_COPIED;
    if (_ixfs_copy_desc(handle, source.text().c_str(), destination.text().c_str(),
                        extent_name.text().c_str()) != 1) {
        log.error("ERR - Failed copying Disk Descriptor (%d): from %s to %s\n", failed,
                  source.display_str(), destination.display_str());
        return failed;
    }
    log.info("INF - Created new .desc file: %s\n", destination.display_str());
    log.info("      point to .vmdk link: %s\n", extent_name.utf8_str());
    return EC_OK;
}

} // namespace

ec_status copyOrLinkPath(_ixfs_control_t* handle, const LmfString& source,
                         const LmfString& destination, bool makeLink, bool replaceExisting,
                         const LmfString& descExtentName)
{
    const Log log(handle, "copyOrLinkPath");
    const LmfString mount_point = default_narrow(handle->mount->mount_point);
    const LmfPathname from = convertUnixPathToPlatformPath(mount_point, source);
    const LmfPathname to = convertUnixPathToPlatformPath(mount_point, destination);
    if (_ixfs_file_exists(handle, from.text().c_str()) == 0) {
        log.error("ERR - Failed to find source file for copy/link: %s\n", from.display_str());
        return EC_FILE_NOT_FOUND;
    }
    // Looked at in both cases, so that the log shows whether a descriptor was written over.
    if (_ixfs_file_exists(handle, to.text().c_str()) != 0 && !replaceExisting)
        return reuse(log, to);
    log.info("INF - makeLink? %d\n", makeLink ? 1 : 0);
    return makeLink ? link_file(handle, log, from, to)
                    : copy_descriptor(handle, log, from, to, descExtentName);
}
