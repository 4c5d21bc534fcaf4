// Unmounts of what is really mounted. Whatever the helper does, the image keeps all that it holds:
// the fixture sees to that after each test.
#include "loopback_test.h"

#include <filesystem>
#include <fstream>

#include <sys/mount.h>

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::SizeIs;

namespace
{

class UnmountOnMount : public MountingTest
{
protected:
    // Mounts by a helper that tells a mount path, or by one that doesn't.
    void given_mount() { ASSERT_NE(mount(), nullptr); }
    void given_mount_without_path()
    {
        loopback.steer("mount", "leave-out", "MNTPATH\n");
        given_mount();
    }

    // Expects that the mount is still there, and that it was noticed by the operation of that tag.
    void expect_left_mounted(const std::string& tag)
    {
        EXPECT_EQ(server.mounts(), 1);
        const Lines expected{
            {IXFS_LOG_ERR, tag, "ERR - still mounted, not deleted: " + server.mount_point + "\n"}};
        EXPECT_EQ(log.with_message(expected.front().message), expected);
        umount2(server.mount_point.c_str(), MNT_DETACH);
    }

    void expect_unmounted() const
    {
        EXPECT_EQ(server.mounts(), 0);
        EXPECT_FALSE(fs::exists(server.mount_point));
    }
};

TEST_F(UnmountOnMount, TakesMountAndDirectoryAway)
{
    given_mount();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    expect_unmounted();
    EXPECT_THAT(loopback.calls(), ElementsAre(mount_call(server), unmount_call(server)));
}

TEST_F(UnmountOnMount, LeavesAMountThatTheHelperLeft)
{
    given_mount();
    loopback.steer("umount", "keep");
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    expect_left_mounted("ixfs_unmount()");
}

TEST_F(UnmountOnMount, LeavesAMountThatAFailingHelperLeft)
{
    given_mount();
    loopback.steer("umount", "status", "5");
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK) << "with a mount path the helper's status is moot";
    expect_left_mounted("ixfs_unmount()");
}

TEST_F(UnmountOnMount, WithoutMountPathLeavesTheDirectory)
{
    given_mount_without_path();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(server.mounts(), 0);
    EXPECT_TRUE(fs::is_empty(server.mount_point));
}

TEST_F(UnmountOnMount, UnmountsByItselfWhenTheHelperFails)
{
    given_mount_without_path();
    loopback.steer("umount", "status", "3");
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_HELPER_FAILED);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
    expect_unmounted();
    EXPECT_THAT(log.with_message("INF - umount successful: " + server.mount_point + "\n"),
                SizeIs(1));
}

TEST_F(UnmountOnMount, LeavesAMountThatIsInUseWhenTheHelperFails)
{
    given_mount_without_path();
    loopback.steer("umount", "status", "3");
    const std::ifstream in_use(server.mount_point + "/" + server.image + "/vm1/disk.vmdk");
    ASSERT_TRUE(in_use);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_HELPER_FAILED);
    EXPECT_THAT(log.with_message("ERR - umount failed for " + server.mount_point +
                                 ", errno = " + std::to_string(EBUSY) + "\n"),
                SizeIs(1));
    expect_left_mounted("_ixfs_umount()");
}

TEST_F(UnmountOnMount, SucceedsWhenTheHelperTellsNoExitStatus)
{
    given_mount_without_path();
    loopback.steer("umount", "leave-out", "EXIT_STATUS\n");
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(server.mounts(), 0);
}

TEST_F(UnmountOnMount, LeavesTheOtherMountOfTwoOnOneDirectory)
{
    const Handle other = make_handle();
    given_mount();
    ASSERT_NE(mount(other, server), nullptr);
    EXPECT_EQ(server.mounts(), 2);

    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(server.mounts(), 1);
    EXPECT_TRUE(fs::exists(server.mount_point + "/" + server.image));
    EXPECT_EQ(ixfs_unmount(other.get()), EC_OK);
    expect_unmounted();
}

TEST_F(UnmountOnMount, CanBeFollowedByAnotherMount)
{
    given_mount();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    given_mount();
    EXPECT_EQ(server.mounts(), 1);
}

} // namespace
