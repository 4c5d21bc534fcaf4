// Making one file of the image visible in its view.
#ifndef IXFS_COPY_OR_LINK_H
#define IXFS_COPY_OR_LINK_H

#include "ixfs_vmir.h"

// Copies a descriptor, or hard-links a data file, under a new name.
//
//   source, destination  paths relative to the mount point of the handle, which must be mounted
//   makeLink             link; else copy
//   replaceExisting      else an existing destination is kept and is a success
//   descExtentName       for a copy: the data file that the new descriptor names
//
// Returns EC_OK, EC_FILE_NOT_FOUND (no source), EC_SYSTEM_ERROR (link) or EC_FILE_NOT_COPIED, each
// failure after a line with severity IXFS_LOG_ERR. What a failure made stays.
ec_status copyOrLinkPath(_ixfs_control_t* handle, const LmfString& source,
                         const LmfString& destination, bool makeLink, bool replaceExisting,
                         const LmfString& descExtentName);

#endif
