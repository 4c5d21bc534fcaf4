#include "mount_root.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace
{

// With these errors a deletion by this path would fail as well, so the answer may be "no". All
// others, such as that of a dead server, say nothing about the path.
bool leads_nowhere(int error)
{
    return error == ENOENT || error == ENOTDIR || error == ENAMETOOLONG || error == ELOOP ||
           error == EACCES;
}

} // namespace

MountRoot mount_root(const char* path)
{
    struct statx status {
    };
    // DONT_SYNC: the answer is the kernel's own, so a server that hangs is not asked.
    if (statx(AT_FDCWD, path, AT_STATX_DONT_SYNC, 0, &status) != 0)
        return leads_nowhere(errno) ? MountRoot::no : MountRoot::unknown;
    // A kernel that does not know the attribute leaves it out of the mask.
    if ((status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) == 0)
        return MountRoot::unknown;
    return (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0 ? MountRoot::yes : MountRoot::no;
}
