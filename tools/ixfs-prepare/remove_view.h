// Removing the view folder of an image.
#ifndef IXFS_PREPARE_REMOVE_VIEW_H
#define IXFS_PREPARE_REMOVE_VIEW_H

#include "records.h"
#include "request.h"

#include <ixfs.h>

// Mounts, removes the image's folder "_vmir" with all that is in it, unmounts. That there is none is
// a success. A missing image is EC_FILE_NOT_FOUND. On the way into the image no symbolic link is
// followed: others write the image. For a process that does nothing else meanwhile: the working
// directory changes, and is "/" afterwards.
Outcome remove_view(const Request& request, ixfs_log_callback log);

#endif
