// The part of _ixfs_copy_desc that does not ask where the two files are reached from.
#ifndef IXFS_DESCRIPTOR_COPY_H
#define IXFS_DESCRIPTOR_COPY_H

#include "ixfs.h"
#include "open_file.h"

#include <optional>
#include <sys/types.h>

// A descriptor to be copied. Nothing is open, and errno set, where it could not be opened.
struct OldDescriptor {
    OpenFile file;
    std::optional<off_t> size; // in bytes, where that is known
};

// Where the two files of a copy come from.
class DescriptorFiles
{
public:
    virtual ~DescriptorFiles() = default;
    virtual OldDescriptor open_old() = 0;
    virtual OpenFile open_new() = 0; // called once the old one is open
};

// Does what _ixfs_copy_desc does, with the files that `files` opens. The paths are for the log.
int copy_descriptor(_ixfs_control_t* handle, const char* old_path, const char* new_path,
                    const char* extent_name, DescriptorFiles& files);

#endif
