// Names of the image's layout that more than one file needs.
#ifndef IXFS_IMAGE_LAYOUT_H
#define IXFS_IMAGE_LAYOUT_H

#include "ixfs_vmir.h"

extern const LmfString VIEW_DIR_NAME;          // the view folder in an image directory
extern const LmfString backupsPathElement;     // where all images lie
extern const LmfString dotDescFileType;        // a descriptor is named after its data file
extern const LmfString dotVmdkDotDescFileType; // with this behind it

// A narrow text in the default code page; up to its NUL.
LmfString default_narrow(const char* text);

#endif
