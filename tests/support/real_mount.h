// Real mounts of the test's own, gone with their objects.
#ifndef IXFS_TESTS_REAL_MOUNT_H
#define IXFS_TESTS_REAL_MOUNT_H

#include <cerrno>
#include <string>
#include <system_error>
#include <utility>

#include <sys/mount.h>

class RealMount
{
public:
    // An empty file system.
    static RealMount tmpfs(const std::string& on) { return {"ixfs-test", on, "tmpfs", 0}; }

    // A folder in a second place. The kernel ignores the type, but valgrind wants to read it.
    static RealMount bind(const std::string& folder, const std::string& on)
    {
        return {folder, on, "none", MS_BIND};
    }

    // A folder over itself, in which no device can be opened.
    static RealMount without_devices(const std::string& folder)
    {
        RealMount mount = bind(folder, folder);
        constexpr unsigned long forbid_devices = MS_BIND | MS_REMOUNT | MS_NODEV;
        check(::mount("none", folder.c_str(), "none", forbid_devices, nullptr), folder);
        return mount;
    }

    ~RealMount() { ::umount2(on_.c_str(), MNT_DETACH); } // where it still is
    RealMount(RealMount&& other) noexcept : on_(std::exchange(other.on_, std::string())) {}
    RealMount(const RealMount&) = delete;
    RealMount& operator=(const RealMount&) = delete;

private:
    RealMount(const std::string& source, std::string on, const char* type, unsigned long flags)
        : on_(std::move(on))
    {
        check(::mount(source.c_str(), on_.c_str(), type, flags, nullptr), on_);
    }

    static void check(int result, const std::string& place)
    {
        if (result != 0)
            throw std::system_error(errno, std::generic_category(), place);
    }

    std::string on_;
};

#endif
