// Server names that the helper's answer makes something else of.
#include "loopback_test.h"
#include "temp_dir.h"
#include "working_directory.h"

#include <sys/mount.h>

using testing::IsEmpty;
using testing::SizeIs;

namespace
{

// The text behind the last "=" of what the helper reports is "data".
class ServerNameWithEqualsSign : public MountingTest
{
protected:
    void given_working_directory_with_data() const
    {
        working.make_folder("data/backups");
        working.write("data/backups/disk", "bytes");
    }

    void expect_left_alone(const std::string& tag)
    {
        EXPECT_TRUE(working.exists("data/backups/disk"));
        const std::string message = "ERR - not an absolute path, not deleted: data\n";
        EXPECT_EQ(log.with_message(message), (Lines{{IXFS_LOG_ERR, tag, message}}));
        EXPECT_THAT(log.with_tag("_ixfs_folder_delete()"), IsEmpty());
        umount2(other.mount_point.c_str(), MNT_DETACH);
    }

    const SampleServer other{"media1=data"};
    TempDir working;
    WorkingDirectory directory{working.path()};
};

TEST_F(ServerNameWithEqualsSign, LeavesTheWorkingDirectoryAlone)
{
    given_working_directory_with_data();
    ASSERT_STREQ(mount(handle, other), "data");
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    expect_left_alone("ixfs_unmount()");
}

TEST_F(ServerNameWithEqualsSign, LeavesTheWorkingDirectoryAloneWhenTheHelperFails)
{
    given_working_directory_with_data();
    loopback.steer("mount", "leave-out", "MNTPATH\n");
    ASSERT_STREQ(mount(handle, other), "data");
    loopback.steer("umount", "status", "3");
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_HELPER_FAILED);
    expect_left_alone("_ixfs_umount()");
    EXPECT_THAT(log.with_message("INF - attempting to umount -f (data)\n"), IsEmpty());
}

} // namespace
