// The parts of the file operations that do not ask where a file is reached from: a path, as in
// ixfs.h, or an open folder of an image.
#ifndef IXFS_FILES_H
#define IXFS_FILES_H

#include "ixfs.h"

#include <functional>

// Logs what _ixfs_file_exists logs of an access to `path`. `result` is the access's own; a failed
// one has set errno. Returns whether the file can be read.
bool report_access(_ixfs_control_t* handle, const char* path, int result);

// Makes a path's segment `number`, counted from 1, as mkdir does. `path` ends with that segment.
using MakeSegment = std::function<int(int number, const char* path)>;

// Does what _ixfs_folder_create does, with `make` in mkdir's place. Returns false when a directory
// could not be made, or with errno ENOMEM when memory is short.
bool create_folders(_ixfs_control_t* handle, const char* base_name, const char* folder_name,
                    uint32_t* segments, const MakeSegment& make);

// Logs what _ixfs_create_hard_link logs of a link that failed with `error`; 0 is success. Returns
// what that returns.
int report_link(_ixfs_control_t* handle, const char* existing, const char* new_path, int error);

#endif
