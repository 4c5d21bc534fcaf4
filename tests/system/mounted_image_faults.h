// The sweeps of mounts and unmounts.
#ifndef IXFS_TESTS_MOUNTED_IMAGE_FAULTS_H
#define IXFS_TESTS_MOUNTED_IMAGE_FAULTS_H

#include "fault_image.h"
#include "fault_sweep.h"

#include <string>

#include <unistd.h>

// A fixture with a handle, and with the image of a server whose name says what the helper does.
class MountedImageFaults : public FaultSweep
{
protected:
    explicit MountedImageFaults(const std::string& server) : image(server) {}

    // Each run makes the mount directory anew.
    void arrange() override
    {
        rmdir(image.mount_point.c_str());
        handle = silent_handle();
    }

    static ec_status mount(const Handle& handle, const FaultImage& image)
    {
        constexpr int port = 1;
        constexpr unsigned int timeout = 3; // seconds
        const char* const mount_point = ixfs_mount(handle.get(), "mount-secret", "unmount-secret",
                                                   port, image.server.c_str(), timeout, nullptr);
        return mount_point != nullptr ? EC_OK : ixfs_last_error(handle.get());
    }

    ec_status mount() const { return mount(handle, image); }

    // Whatever happened before, the handle has no mount, and mounts and unmounts as ever.
    void serve() override
    {
        EXPECT_EQ(mount(handle, spare_image_), EC_OK);
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
        handle.reset();
        image.expect_unchanged();
    }

    const FaultImage image;
    Handle handle;

private:
    const FaultImage spare_image_{"spare"};
};

// The removal of the mount point, which nothing but the log tells of.
inline const FaultCases mount_point_removal_faults{
    {fails(interpose::on_stat, EIO), makes_no_difference},
    {fails(interpose::on_stat, ENOSYS), makes_no_difference},
    {fails(interpose::on_opendir, EACCES), makes_no_difference},
    {fails(interpose::on_readdir, EIO), makes_no_difference},
    {fails_when_done(interpose::on_closedir, closedir, EINTR), makes_no_difference},
    {fails(interpose::on_rmdir, EBUSY), makes_no_difference},
};

// The look for what is mounted. Where it fails, the mount point stays, and nothing else is
// different.
inline const FaultCases mount_table_faults{
    {fails(interpose::on_open, EMFILE), makes_no_difference},
    {fails(interpose::on_open, ENOENT), makes_no_difference}, // nothing is mounted on /proc
    {fails(interpose::on_close, EIO), makes_no_difference},
};

// Lines that tell how far a mount or an unmount has come.
namespace stage
{
inline constexpr char has_mutex_to_mount[] = "INF - base_name: /usr/varnis/var/ixfs, ";
inline constexpr char has_mount_directory[] = "INF - Successfully setup mount directory: ";
inline constexpr char runs_mount[] =
    "INF - running command - \"/usr/varnis/stowline/bin/ixfs\" mount ";
inline constexpr char has_mount_path[] = "INF - response - MNTPATH=";
inline constexpr char has_mount_point[] = "INF - response - MOUNTPOINT=";
inline constexpr char finds_mount_dead[] = "ERR - ACE_OS::stat(";
inline constexpr char begins_unmount[] = "INF - Lets terminate the event...";
inline constexpr char has_mutex_to_unmount[] = "INF - got the mount mutex";
inline constexpr char runs_unmount[] =
    "INF - running command - \"/usr/varnis/stowline/bin/ixfs\" umount ";
inline constexpr char has_exit_status[] = "INF - response - EXIT_STATUS=";
} // namespace stage

#endif
