// Names of the image's layout that more than one file needs.
#ifndef IXFS_IMAGE_LAYOUT_H
#define IXFS_IMAGE_LAYOUT_H

#include "ixfs_vmir.h"

#include <string_view>

extern const LmfString VIEW_DIR_NAME;          // the view folder in an image directory
extern const LmfString backupsPathElement;     // where all images lie
extern const LmfString dotDescFileType;        // ".desc": the descriptor of x.vmdk is x.vmdk.desc
extern const LmfString dotVmdkDotDescFileType; // ".vmdk.desc": how a disk's descriptor ends

// A narrow text in the default code page.
LmfString default_narrow(std::string_view text);

#endif
