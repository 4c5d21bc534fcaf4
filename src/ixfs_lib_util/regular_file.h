// Opening regular files for reading, and nothing else.
#ifndef IXFS_REGULAR_FILE_H
#define IXFS_REGULAR_FILE_H

#include "file_status.h"
#include "open_file.h"

#include <sys/types.h>

// A file that is open for reading, and what the kernel said of it. Nothing is open after a failure.
struct RegularFile {
    OpenFile file;
    struct stat status {
    };
};

// How many bytes a file may grow while it is read. If others write it faster than it is read, it
// never ends.
constexpr off_t most_growth = 64L << 20;

// Whether the kernel opens the devices that lie in a folder.
enum class Devices { may_be_opened, are_refused };

// Returns are_refused where the mount of an open directory forbids devices, as FUSE's mostly do.
Devices devices_in(int folder);

// Opens the regular file `name` in an open directory. Anything else is not opened, since the
// opening alone may wait or do something: a FIFO waits for its writer, a device may start to work.
// If nothing is open, errno says why: ELOOP for a symbolic link, EISDIR for a folder, EINVAL for
// what else is no regular file.
//
// `devices`: what devices_in said of the directory. Where they are refused, opening does nothing
// and need not wait; so there a file may be opened first and looked at then.
RegularFile open_regular_file(int folder, const char* name, Devices devices);

// The same for the file that `path` leads to below an open directory; see open_beneath. Follows the
// links that stay below.
RegularFile open_regular_file_beneath(int folder, const char* path);

// Reads from a file that one of these has opened, as read does. No signal ends it. Waits for the
// bytes, also where the file was opened without waiting: a file system that keeps files on tape
// answers EAGAIN then.
ssize_t read_regular_file(int file, char* block, std::size_t size);

#endif
