#include "mount_root.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace
{

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
    if (statx(AT_FDCWD, path, AT_STATX_DONT_SYNC, 0, &status) != 0)
        return leads_nowhere(errno) ? MountRoot::no : MountRoot::unknown;
    if ((status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) == 0)
        return MountRoot::unknown;
    return (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0 ? MountRoot::yes : MountRoot::no;
}
