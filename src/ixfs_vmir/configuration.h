// Reading the VM configuration out of an image.
#ifndef IXFS_CONFIGURATION_H
#define IXFS_CONFIGURATION_H

#include "ixfs_vmir.h"

// Waits up to 20 seconds for the configuration file, as a fresh mount may not show it at once, and
// reads it.
//
//   path     the file, under the mount point
//   content  receives the text up to its first NUL; untouched until the file is open and not empty
//
// Returns EC_OK, EC_FILE_NOT_FOUND, EC_FILE_NOT_OPENED or EC_FILE_NOT_READ (also when it is empty;
// `content` then holds what could be read), each failure after a line with severity IXFS_LOG_ERR.
// Throws std::bad_alloc, and std::length_error for an absurd size.
ec_status readXml(_ixfs_control_t* handle, const LmfPathname& path, std::string& content);

#endif
