// An image of a mounted server, and where it lies.
#ifndef IXFS_IMAGE_PATHS_H
#define IXFS_IMAGE_PATHS_H

#include "ixfs_vmir.h"

// Which image it is.
struct ImageIdentity {
    std::string client;
    long backup_time = 0;
    int schedule_type = 0; // 0 full; 1 or 4 incremental
};

// Where the image's parts lie, relative to the mount point but for the last.
struct ImageLocation {
    LmfString folder;             // the image directory
    LmfString view_folder;        // "_vmir" below it
    LmfString configuration_file; // the VM configuration below it
    LmfPathname configuration;    // the same in full
};

// Finds out where an image of the handle's mount lies. Does the work of buildPathToXml, and logs in
// its name. Returns EC_OK; or, after lines with severity IXFS_LOG_ERR, EC_INVALID_PARAMETER when
// nothing is mounted (`location` is untouched), or EC_INVALID_SCHEDULE (only `configuration` is
// set, and ends before the schedule).
ec_status locate_image(_ixfs_control_t* handle, const ImageIdentity& image,
                       ImageLocation& location);

#endif
