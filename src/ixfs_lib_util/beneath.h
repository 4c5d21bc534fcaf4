// Opening what lies below a folder that somebody else writes to.
#ifndef IXFS_BENEATH_H
#define IXFS_BENEATH_H

#include "open_file.h"

// Which symbolic links on the way are followed. Any other makes the opening fail: with ELOOP where
// none is followed, with EXDEV where it leads out.
enum class Links { none, that_stay_below };

// Opens what `path` leads to from `folder`, an open directory. Never gets out of that directory:
// neither by "..", nor by a symbolic link, nor by a rename at the same time (EXDEV, EAGAIN).
// `flags` are as for openat, without O_CREAT; the file is closed on exec. If it cannot be opened,
// nothing is open, and errno says why. Throws std::bad_alloc. Any thread.
//
// Without openat2, as before Linux 5.6, opens one segment after the other.
OpenFile open_beneath(int folder, const char* path, int flags, Links links);

#endif
