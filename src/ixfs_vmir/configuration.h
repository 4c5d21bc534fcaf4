// Reading the VM configuration out of an image.
#ifndef IXFS_CONFIGURATION_H
#define IXFS_CONFIGURATION_H

#include "image.h"

// Waits up to 20 seconds for the configuration file, as a fresh mount may not show it at once, and
// reads it.
//
//   file     the file
//   content  receives the text up to its first NUL; untouched until the file is open and not empty
//
// Of what stands behind the text nothing is stored. Returns EC_OK, EC_FILE_NOT_FOUND,
// EC_FILE_NOT_OPENED (also when it is no regular file of the image) or EC_FILE_NOT_READ (also when
// it is empty, or does not end; `content` then holds the text as far as it could be read), each
// failure after a line with severity IXFS_LOG_ERR. Throws std::bad_alloc, and std::length_error for
// an absurd size.
ec_status readXml(_ixfs_control_t* handle, Image& image, const ImageFile& file,
                  std::string& content);

#endif
