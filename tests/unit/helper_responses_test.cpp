// What the library takes from the helper's output, line by line.
#include "fake_time.h"
#include "mount_fixture.h"
#include "record_view.h"

#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace
{

class HelperResponses : public MountTest
{
protected:
    // The mount path that a successful mount stored, or "none".
    std::string mount_path() const
    {
        return record_view::mount(handle.get()).mnt_path.value_or("none");
    }

    // What the lines behind the command of a mount or unmount say.
    std::vector<std::string> messages_behind_command() const
    {
        std::vector<std::string> messages;
        bool behind = false;
        for (const Line& line : log.lines_here()) {
            if (behind)
                messages.push_back(line.message);
            behind = behind || line.message.find("INF - running command - ") == 0;
        }
        return messages;
    }
};

using Messages = std::vector<std::string>;

TEST_F(HelperResponses, MountStopsReadingAtTheExitStatus)
{
    FakeClock clock;
    helper.answers({{"EXIT_STATUS=25", "MOUNTPOINT=" + image.path()}});
    EXPECT_EQ(mount(0), nullptr);
    EXPECT_EQ(messages_behind_command(),
              (Messages{"INF - response - EXIT_STATUS=25\n", "ERR - timeout period exceeded\n",
                        "ERR - nothing is mounted\n"}));
}

TEST_F(HelperResponses, LineThatBeginsWithANulIsPassedOver)
{
    const std::string hidden("\0MOUNTPOINT=/elsewhere", 22);
    helper.answers({{hidden, "MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"}});
    EXPECT_STREQ(mount(), image.path().c_str());
    EXPECT_EQ(log.with_message("INF - response - \n"), Lines{});
}

TEST_F(HelperResponses, MountPathIsStoredWithoutItsFirstCharacter)
{
    helper.answers({{"MNTPATH=/m/x", "MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(mount_path(), "m/x");
}

TEST_F(HelperResponses, EmptyMountPathStoresNothing)
{
    helper.answers({{"MNTPATH=", "MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(mount_path(), "none");
    EXPECT_EQ(log.with_message("INF - mount point: " + image.path() + "\n"), Lines{});
}

TEST_F(HelperResponses, MountPathOfOneCharacterIsStoredEmpty)
{
    helper.answers({{"MNTPATH=/", "MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(mount_path(), "");
    EXPECT_EQ(log.with_message("INF - mount point: " + image.path() + "\n").size(), 1U);
}

TEST_F(HelperResponses, MountPathBeginsBehindTheLastEqualsSign)
{
    helper.answers({{"MNTPATH=/a=/b/c", "MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(mount_path(), "b/c");
}

TEST_F(HelperResponses, MountPathMayStandAnywhereInALine)
{
    helper.answers({{"path: MNTPATH=/m/x", "MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(mount_path(), "m/x");
}

TEST_F(HelperResponses, LaterMountPathReplacesAnEarlierOne)
{
    helper.answers(
        {{"MNTPATH=/m/x", "MNTPATH=/m/y", "MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(mount_path(), "m/y");
}

TEST_F(HelperResponses, EmptyLaterMountPathKeepsTheEarlierOne)
{
    helper.answers({{"MNTPATH=/m/x", "MNTPATH=", "MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(mount_path(), "m/x");
}

TEST_F(HelperResponses, MountPathBehindTheMountPointIsIgnored)
{
    helper.answers({{"MOUNTPOINT=" + image.path(), "MNTPATH=/m/x", "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(mount_path(), "none");
}

TEST_F(HelperResponses, MountPathOfALaterRunIsIgnoredOnceAMountPointIsTold)
{
    FakeClock clock;
    helper.answers(
        {{"MOUNTPOINT=" + image.path(), "EXIT_STATUS=25"}, {"MNTPATH=/m/x", "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(mount_path(), "none");
}

TEST_F(HelperResponses, OneLineMayTellBoth)
{
    helper.answers({{"MNTPATH=MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"}});
    EXPECT_STREQ(mount(), image.path().c_str());
    EXPECT_EQ(mount_path(), image.path().substr(1));
}

TEST_F(HelperResponses, MountPathWithoutAMountPointMountsNothing)
{
    helper.answers({{"MNTPATH=/m/x", "EXIT_STATUS=0"}});
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(messages_behind_command(),
              (Messages{"INF - response - MNTPATH=/m/x\n", "INF - response - EXIT_STATUS=0\n",
                        "INF - mount point: \n", "ERR - nothing is mounted\n"}));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
}

TEST_F(HelperResponses, MountPathWithoutAMountPointIsRetriedWhileBusy)
{
    FakeClock clock;
    helper.answers({{"MNTPATH=/m/x", "EXIT_STATUS=25"}, mounts_image()});
    EXPECT_STREQ(mount(), image.path().c_str());
    EXPECT_EQ(mount_path(), "m/x");
}

TEST_F(HelperResponses, MountPointBeginsBehindTheLastEqualsSign)
{
    helper.answers({{"MOUNTPOINT=/a=" + image.path(), "EXIT_STATUS=0"}});
    EXPECT_STREQ(mount(), image.path().c_str());
    EXPECT_EQ(messages_behind_command(),
              (Messages{"INF - response - MOUNTPOINT=/a=" + image.path() + "\n",
                        "MOUNTPOINT= MOUNTPOINT=/a=" + image.path() + "\n",
                        "INF - response - EXIT_STATUS=0\n",
                        "INF - mount point - " + image.path() + "\n"}));
}

TEST_F(HelperResponses, MountPointMayStandAnywhereInALine)
{
    helper.answers({{"local MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"}});
    EXPECT_STREQ(mount(), image.path().c_str());
}

TEST_F(HelperResponses, EmptyMountPointKeepsTheEarlierOne)
{
    helper.answers({{"MOUNTPOINT=" + image.path(), "MOUNTPOINT=", "EXIT_STATUS=0"}});
    EXPECT_STREQ(mount(), image.path().c_str());
    EXPECT_EQ(log.with_message("MOUNTPOINT= MOUNTPOINT=\n").size(), 1U);
}

TEST_F(HelperResponses, LaterMountPointReplacesAnEarlierOne)
{
    helper.answers({{"MOUNTPOINT=/elsewhere", "MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"}});
    EXPECT_STREQ(mount(), image.path().c_str());
}

TEST_F(HelperResponses, KeysAreToldApartByCase)
{
    helper.answers({{"mntpath=/m/x", "MountPoint=/x", "Exit_Status=3"}});
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(messages_behind_command(),
              (Messages{"INF - response - mntpath=/m/x\n", "INF - response - MountPoint=/x\n",
                        "INF - response - Exit_Status=3\n", "ERR - nothing is mounted\n"}));
}

TEST_F(HelperResponses, ExitStatusCountsOnlyAtTheBeginningOfALine)
{
    helper.answers({{" EXIT_STATUS=3", "the EXIT_STATUS=3", "EXIT_STATUS=0"}});
    mount();
    EXPECT_EQ(log.with_message("ERR - command failed\n"), Lines{});
    EXPECT_EQ(log.with_message("INF - response - EXIT_STATUS=0\n").size(), 1U);
}

TEST_F(HelperResponses, ExitStatusIsTheNumberBehindTheLastEqualsSign)
{
    FakeClock clock;
    helper.answers(
        {{"EXIT_STATUS=3=25"}, {"EXIT_STATUS= 25"}, {"EXIT_STATUS=25 (busy)"}, {"EXIT_STATUS=7"}});
    mount();
    EXPECT_EQ(helper.runs().size(), 4U);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
}

// A status of 25 would be tried again, and each of the first three is one in another base.
TEST_F(HelperResponses, ExitStatusIsDecimalWhateverItLooksLike)
{
    FakeClock clock;
    for (const char* failed : {"031", "010", "0031"}) {
        helper.answers({{"EXIT_STATUS=" + std::string(failed)}, {"EXIT_STATUS=0"}});
        EXPECT_EQ(mount(), nullptr) << failed;
        EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED) << failed;
    }
    helper.answers({{"MOUNTPOINT=" + image.path(), "EXIT_STATUS=0x19"}});
    EXPECT_STREQ(mount(), image.path().c_str()) << "0x19 is zero";
    helper.answers({{"EXIT_STATUS=025"}, {"EXIT_STATUS=0"}});
    const std::size_t runs = helper.runs().size();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(helper.runs().size(), runs + 2) << "025 is 25";
}

TEST_F(HelperResponses, ExitStatusThatIsNoNumberIsZero)
{
    helper.answers({{"MOUNTPOINT=" + image.path(), "EXIT_STATUS=busy"}});
    EXPECT_STREQ(mount(), image.path().c_str());
}

TEST_F(HelperResponses, EmptyExitStatusIsZero)
{
    helper.answers({{"MOUNTPOINT=" + image.path(), "EXIT_STATUS="}});
    EXPECT_STREQ(mount(), image.path().c_str());
}

TEST_F(HelperResponses, MountWithoutAnExitStatusSucceeds)
{
    helper.answers({{"MOUNTPOINT=" + image.path()}});
    EXPECT_STREQ(mount(), image.path().c_str());
}

TEST_F(HelperResponses, MountKeepsTheExitStatusOfTheRunBefore)
{
    FakeClock clock;
    helper.answers({{"EXIT_STATUS=25"}, {"MOUNTPOINT=" + image.path()}, mounts_image()});
    EXPECT_STREQ(mount(), image.path().c_str());
    EXPECT_EQ(helper.runs().size(), 3U);
}

TEST_F(HelperResponses, EmptyLinesAreSkippedAndOnlyOneNewlineIsRemoved)
{
    helper.answers({{"", "", "carriage return\r", " ", "EXIT_STATUS=0"}});
    mount();
    EXPECT_EQ(messages_behind_command(),
              (Messages{"INF - response - carriage return\r\n", "INF - response -  \n",
                        "INF - response - EXIT_STATUS=0\n", "ERR - nothing is mounted\n"}));
}

TEST_F(HelperResponses, LastLineNeedsNoNewline)
{
    helper.does("printf 'EXIT_STATUS=7'");
    mount();
    EXPECT_EQ(messages_behind_command(),
              (Messages{"INF - response - EXIT_STATUS=7\n", "ERR - command failed\n"}));
}

TEST_F(HelperResponses, ReadingThatASignalInterruptsGoesOn)
{
    helper.answers({mounts_image()});
    auto read = interpose::on_read.fails_once(EINTR);
    EXPECT_STREQ(mount(), image.path().c_str());
    EXPECT_GT(read.calls(), 1);
}

TEST_F(HelperResponses, ReadingThatFailsEndsTheRun)
{
    helper.answers({mounts_image()});
    auto read = interpose::on_read.fails(EIO);
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(messages_behind_command(), (Messages{"ERR - nothing is mounted\n"}));
}

TEST_F(HelperResponses, UnmountReadsOnBehindTheExitStatus)
{
    given_mount(mounts_image(), {{"EXIT_STATUS=3", "unmounting", "EXIT_STATUS=0", "MNTPATH=/m/x"}});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(messages_behind_command(),
              (Messages{"INF - response - EXIT_STATUS=3\n", "INF - response - unmounting\n",
                        "INF - response - EXIT_STATUS=0\n", "INF - response - MNTPATH=/m/x\n"}));
}

TEST_F(HelperResponses, UnmountBeginsEachRunWithExitStatusZero)
{
    FakeClock clock;
    given_mount(mounts_image(), {{"EXIT_STATUS=25"}, {"no status"}});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(helper.runs().size(), 3U);
}

TEST_F(HelperResponses, UnmountLooksAtNoOtherKey)
{
    given_mount(mounts_image(), {{"MOUNTPOINT=/elsewhere", "MNTPATH=/m/x", "EXIT_STATUS=0"}});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(messages_behind_command(),
              (Messages{"INF - response - MOUNTPOINT=/elsewhere\n",
                        "INF - response - MNTPATH=/m/x\n", "INF - response - EXIT_STATUS=0\n"}));
}

} // namespace
