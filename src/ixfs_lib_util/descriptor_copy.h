// The part of _ixfs_copy_desc that does not ask where the two files are reached from.
#ifndef IXFS_DESCRIPTOR_COPY_H
#define IXFS_DESCRIPTOR_COPY_H

#include "ixfs.h"
#include "open_file.h"

#include <functional>

// Opens one of the files. Sets errno where that fails.
using OpenDescriptor = std::function<OpenFile()>;

// Does what _ixfs_copy_desc does, with the files that `open_old` and then `open_new` give; the paths
// are for the log.
int copy_descriptor(_ixfs_control_t* handle, const char* old_path, const char* new_path,
                    const char* extent_name, const OpenDescriptor& open_old,
                    const OpenDescriptor& open_new);

#endif
