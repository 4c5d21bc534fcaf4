#include "mount_root.h"

#include "mount_table.h"
#include "open_file.h"

#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <sys/stat.h>

namespace
{

MountRoot answer_of(const struct statx& status)
{
    // A kernel that does not know the attribute leaves it out of the mask.
    if ((status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT) == 0)
        return MountRoot::unknown;
    return (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0 ? MountRoot::yes : MountRoot::no;
}

// DONT_SYNC: the answer is the kernel's own, so a server that hangs is not asked.
constexpr int without_asking = AT_STATX_DONT_SYNC | AT_NO_AUTOMOUNT;

// The way up from the root of a mount leads into another mount, or nowhere: from the topmost
// directory, and from a mount that was just taken away. The latter may happen at any time, but a
// mount does not come back; so the look for the top is the last.
MountRoot answer_of_table(int directory)
{
    const OpenFile above(openat(directory, "..", O_PATH | O_DIRECTORY | O_CLOEXEC));
    const std::optional<int> id = mount_id(directory);
    const std::optional<int> id_above = mount_id(above.descriptor()); // none if that is not open
    if (!id || !id_above)
        return MountRoot::unknown;
    return *id != *id_above || is_top(directory) ? MountRoot::yes : MountRoot::no;
}

} // namespace

bool leads_nowhere(int error)
{
    return error == ENOENT || error == ENOTDIR || error == ENAMETOOLONG || error == ELOOP ||
           error == EACCES;
}

MountRoot mount_root(int folder, const char* name, int flags)
{
    struct statx status {
    };
    if (statx(folder, name, without_asking | flags, 0, &status) != 0)
        return leads_nowhere(errno) ? MountRoot::no : MountRoot::unknown;
    return answer_of(status);
}

MountRoot mount_root(int directory)
{
    struct statx status {
    };
    if (statx(directory, "", without_asking | AT_EMPTY_PATH, 0, &status) == 0) {
        const MountRoot answer = answer_of(status);
        if (answer != MountRoot::unknown)
            return answer;
    }
    return answer_of_table(directory);
}
