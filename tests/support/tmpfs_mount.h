// A real mount of the test's own.
#ifndef IXFS_TESTS_TMPFS_MOUNT_H
#define IXFS_TESTS_TMPFS_MOUNT_H

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include <sys/mount.h>

// Mounts an empty tmpfs on a folder. Gone with its object, if it is still there then.
class TmpfsMount
{
public:
    explicit TmpfsMount(std::string path) : path_(std::move(path))
    {
        if (::mount("ixfs-test", path_.c_str(), "tmpfs", 0, nullptr) != 0)
            throw std::system_error(errno, std::generic_category(), path_);
    }
    ~TmpfsMount() { ::umount2(path_.c_str(), MNT_DETACH); }
    TmpfsMount(const TmpfsMount&) = delete;
    TmpfsMount& operator=(const TmpfsMount&) = delete;

private:
    std::string path_;
};

#endif
