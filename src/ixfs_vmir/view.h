// Building the view of a VM in its mounted image.
#ifndef IXFS_VIEW_H
#define IXFS_VIEW_H

#include "image.h"
#include "image_paths.h"

// Builds the view folder with a descriptor copy and a data link per disk.
//
//   image        the handle's mount
//   entries      the disks' descriptors in datastore form; not changed
//   identity     which image it is
//   location     where the image lies in the mount
//   out          receives, after what it holds, the new descriptors in datastore form; untouched on
//                failure
//
// Returns EC_OK or the status of the step that failed; see ixfs_prepare_vmir. What fails before the
// first disk leaves all there is in place; what fails at a disk removes the view folder. The view
// record and its lock stay in the handle until that ends, also after a failure. Throws
// std::bad_alloc and what drawing a UUID may throw.
ec_status create_view_vmir(_ixfs_control_t* handle, Image& image, std::vector<std::string>& entries,
                           const ImageIdentity& identity, const ImageLocation& location,
                           std::vector<std::string>& out);

#endif
