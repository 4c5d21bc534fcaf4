// A helper that is killed in the middle of its work. What it said before counts, and what it did
// not say counts as it always does.
#include "mount_fixture.h"
#include "process_state.h"

#include <string>

namespace
{

class HelperKilled : public MountTest
{
protected:
    // Lets each run of the helper say these lines and then die.
    void helper_dies_after(const ScriptedHelper::Answer& lines)
    {
        std::string commands;
        for (const std::string& line : lines)
            commands += "echo '" + line + "'\n";
        helper.does(commands + "kill -KILL $$");
    }

    std::string mount_point_line() const { return "MOUNTPOINT=" + image.path(); }

    NoDescriptorsLeft no_descriptors_left;
};

TEST_F(HelperKilled, BeforeItTellsAMountPointHasMountedNothing)
{
    helper_dies_after({"MNTPATH=/m/x"});
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(log.lines(), lines_before_mount_command() +
                               lines_of_run(mount_says, displayed_command(), {"MNTPATH=/m/x"}) +
                               mount_says.info("INF - mount point: ") +
                               mount_says.error("ERR - nothing is mounted"));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(HelperKilled, BehindItsMountPointHasMounted)
{
    helper_dies_after({mount_point_line()});
    EXPECT_STREQ(mount(), image.path().c_str());
    EXPECT_EQ(log.lines_here(),
              lines_before_mount_command() +
                  lines_of_run(mount_says, displayed_command(), {mount_point_line()}) +
                  mount_says.info("MOUNTPOINT= " + mount_point_line()) +
                  mount_says.info("INF - mount point - " + image.path()));
    helper.does("");
    helper.answers({{"EXIT_STATUS=0"}});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(HelperKilled, BeforeItTellsOfItsUnmountHasUnmounted)
{
    given_mount(mounts_image());
    helper_dies_after({});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.lines_here(),
              lines_before_unmount_command() + lines_of_run(unmount_says, unmount_command(), {}));
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(HelperKilled, BehindAFailureOfItsUnmountHasFailed)
{
    given_mount(mounts_image());
    helper_dies_after({"EXIT_STATUS=5"});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_HELPER_FAILED);
    EXPECT_EQ(log.with_tag("ixfs_unmount()").back(), unmount_says.error("ERR - command failed"));
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(HelperKilled, LeavesTheLockToTheNextMount)
{
    helper_dies_after({});
    EXPECT_EQ(mount(), nullptr);
    helper.does("");
    given_mount(mounts_image());
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
}

} // namespace
