// Which lists of disks are refused before anything is changed.
#ifndef IXFS_DISK_CHECKS_H
#define IXFS_DISK_CHECKS_H

#include "image.h"
#include "image_paths.h"
#include "log.h"

#include <functional>
#include <set>
#include <string>
#include <vector>

// Names of data links in the view. Looked up by any text.
using LinkNames = std::set<std::string, std::less<>>;

// Refuses what would write over one of the VM's own files or mix up its disks:
//
//   - a disk that lies in the view folder
//   - two disks of which one's descriptor would get the name of the other's data link
//   - a disk whose data link is in the view already and is certainly another file than its data
//   - a disk whose descriptor has the name of another disk's data link in the view
//
// Throws EcStatusException with EC_INVALID_PARAMETER after a line with severity IXFS_LOG_ERR, tag
// `log`'s, that names the disk. Changes nothing. Returns the names of the data links that are in
// the view already; none of them is refused.
LinkNames checkDisks(const Log& log, Image& image, const ImageLocation& location,
                     const std::vector<VmirPath>& records);

#endif
