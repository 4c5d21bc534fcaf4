// The sweeps of mounts and unmounts.
#ifndef IXFS_TESTS_MOUNTED_IMAGE_FAULTS_H
#define IXFS_TESTS_MOUNTED_IMAGE_FAULTS_H

#include "fault_image.h"
#include "fault_sweep.h"

#include <string>

// A fixture with a handle, and with the image of a server whose name says what the helper does.
class MountedImageFaults : public FaultSweep
{
protected:
    explicit MountedImageFaults(const std::string& server) : image(server) {}

    void arrange() override { handle = silent_handle(); }

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
inline FaultCases mount_point_removal_faults(ec_status status)
{
    return {
        {fails(interpose::on_stat, EIO), {status}},
        {fails(interpose::on_stat, ENOSYS), {status}},
        {fails(interpose::on_opendir, EACCES), {status}},
        {fails(interpose::on_readdir, EIO), {status}},
        {fails_when_done(interpose::on_closedir, closedir, EINTR), {status}},
        {fails(interpose::on_rmdir, EBUSY), {status}},
    };
}

#endif
