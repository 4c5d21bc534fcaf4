// A VM's image on a file system that fails as a test tells it to, and the call that prepares it.
#ifndef IXFS_TESTS_FAULTY_MOUNT_H
#define IXFS_TESTS_FAULTY_MOUNT_H

#include "fault_mount.h"
#include "image_test.h"
#include "mount_fixture.h"

#include <string>

inline constexpr Speaker read_says("readXml");
inline constexpr Speaker view_says("create_view_vmir");

// An image of two disks that the helper mounts by way of a file system with faults: the mount point
// shows that one from mount to unmount, and the image itself before and after.
class FaultyMount : public ImageTest
{
protected:
    FaultyMount();
    void TearDown() override { EXPECT_EQ(image.end(), 0); }

    // Prepares the image, and checks that nothing is left mounted, locked or open, and that the
    // files of the backup are what they were.
    ec_status prepare();

    // The failures that the preparation logged.
    Lines failures() const;

    // A file that cannot be seen, for the reason given, and what a preparation makes of that when
    // it is the VM configuration.
    static Line unseen_line(const std::string& path, const std::string& reason);
    Line missing_config_line() const;

    // The failures that follow where the second disk's descriptor cannot be seen, for the reason
    // given, or not be copied, and where its data cannot be linked.
    Lines unseen_descriptor_lines(const std::string& reason) const;
    Lines failed_copy_lines() const;
    Lines failed_link_lines() const;

    void expect_whole_view() const;

    // Expects a whole view, and the lines of a preparation that met no fault.
    void expect_undisturbed_success() const;

    // Expects that these failures were logged, and that no view is there or told.
    void expect_failure_without_view(const Lines& expected) const;

    const std::string descriptor_b = in_image("vm/b.vmdk.desc");
    const std::string data_b = in_image("vm/b.vmdk");
    const std::string view_b = in_view("b.vmdk");
    const std::string link_b = in_view("b-flat.vmdk");

    const TempDir served; // where the helper mounts from
    faultfs::FaultMount image{mount_point.path(), served.path()};

private:
    Lines failed_descriptor_lines(ec_status status) const;
    static Line internal_error_line(ec_status status);
};

#endif
