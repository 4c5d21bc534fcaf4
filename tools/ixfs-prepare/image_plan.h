// Where a preparation will find and put its files, found out without mounting anything.
#ifndef IXFS_PREPARE_IMAGE_PLAN_H
#define IXFS_PREPARE_IMAGE_PLAN_H

#include "request.h"

#include <functional>
#include <string>
#include <vector>

// All but the first and the last are relative to the mount point.
struct DiskPlan {
    std::string disk; // as in the request
    std::string descriptor;
    std::string data;
    std::string base_name; // the disk's name in the view
    std::string view_descriptor;
    std::string view_data; // the link to `data`
    std::string path;      // the view's descriptor in datastore form
};

struct ImagePlan {
    std::string folder; // of the image; like the view's, relative to the mount point
    std::string view_folder;
    std::vector<DiskPlan> disks;
};

// What a message calls the disk with this index, such as "disk 1".
using DiskName = std::function<std::string(std::size_t index)>;
std::string disk_number(std::size_t index);

// Derives all paths of a request with a good backup id, as the library does. Throws UsageError that
// names the disk for one that the library would refuse before it looks into the image, for one that
// would lead out of the image, and for one whose data file another disk of the list has.
ImagePlan plan_image(const Request& request, const DiskName& name_of = disk_number);

#endif
