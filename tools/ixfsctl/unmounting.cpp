#include "unmounting.h"

#include "child_call.h"
#include "mount_directories.h"
#include "mount_users.h"
#include "open_descriptor.h"
#include "product.h"

#include <cerrno>
#include <chrono>
#include <ctime>
#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

constexpr std::chrono::seconds patience_with_unmount(3);

int unmount(const std::string& path, int flags)
{
    const ChildCall call(
        [&] { return umount2(path.c_str(), UMOUNT_NOFOLLOW | flags) == 0 ? 0 : errno; });
    return call.result_by(ChildCall::Clock::now() + patience_with_unmount).value_or(ETIMEDOUT);
}

// Lets the calls that hang in the mount fail, and then goes on as soon as their processes have left
// it.
int unmount_by_force(const std::string& path)
{
    constexpr timespec pause = {0, 50'000'000};
    const auto end = ChildCall::Clock::now() + patience_with_unmount;
    int error = unmount(path, MNT_FORCE);
    while (error == EBUSY && ChildCall::Clock::now() < end) {
        nanosleep(&pause, nullptr);
        error = unmount(path, MNT_FORCE);
    }
    return error;
}

// `path` is relative to the mount base.
int open_below(const OpenDescriptor& base, const std::string& path)
{
    open_how how{};
    how.flags = O_PATH | O_DIRECTORY | O_CLOEXEC;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS | RESOLVE_NO_XDEV;
    return static_cast<int>(syscall(SYS_openat2, base.number(), path.c_str(), &how, sizeof(how)));
}

int remove_below(const OpenDescriptor& base, const std::string& path)
{
    const std::size_t slash = path.rfind('/');
    const std::string parent = slash == std::string::npos ? "." : path.substr(0, slash);
    const OpenDescriptor directory(open_below(base, parent));
    if (!directory.is_open())
        return errno;
    const std::string name = path.substr(slash == std::string::npos ? 0 : slash + 1);
    return unlinkat(directory.number(), name.c_str(), AT_REMOVEDIR) == 0 ? 0 : errno;
}

} // namespace

int unmount_top(const Mount& mount)
{
    const int error = unmount(mount.point, 0);
    if ((error != ETIMEDOUT && error != EBUSY) || answers(mount.point))
        return error;
    if (find_user_of_device(mount.device))
        return EBUSY;
    return unmount_by_force(mount.point);
}

int remove_empty_directory(const std::string& path)
{
    const std::string base_path = real_path(mount_base);
    const OpenDescriptor base(open(base_path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!base.is_open())
        return errno;
    std::string below = path.substr(base_path.size() + 1);
    const int error = remove_below(base, below);
    for (bool removed = error == 0; removed && below.find('/') != std::string::npos;) {
        below.erase(below.rfind('/'));
        removed = remove_below(base, below) == 0;
    }
    return error;
}
