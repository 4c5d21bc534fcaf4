// Mounting: the whole way of a mount that succeeds, and its arguments.
#include "mount_fixture.h"
#include "process_state.h"
#include "record_view.h"

#include <climits>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace
{

using Mount = MountTest;

TEST_F(Mount, SaysWhatItDoesInOrder)
{
    helper.answers({{"connecting", "MNTPATH=/m/x", "MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"}});
    EXPECT_STREQ(mount(), image.path().c_str());
    EXPECT_EQ(log.lines_here(),
              lines_before_mount_command() +
                  lines_of_run(mount_says, shown_mount_command,
                               {"connecting", "MNTPATH=/m/x", "MOUNTPOINT=" + image.path()}) +
                  mount_says.info("MOUNTPOINT= MOUNTPOINT=" + image.path()) +
                  mount_says.info("INF - response - EXIT_STATUS=0") +
                  mount_says.info("INF - mount point: " + image.path()) +
                  line_of_validation(image.path()) +
                  mount_says.info("INF - mount point - " + image.path()));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_OK);
}

TEST_F(Mount, WithMountPointButNoMountPathSucceedsWithoutValidation)
{
    helper.answers({{"MOUNTPOINT=/nowhere/at/all", "EXIT_STATUS=0"}});
    EXPECT_STREQ(mount(), "/nowhere/at/all");
    EXPECT_EQ(log.lines_here(),
              lines_before_mount_command() +
                  lines_of_run(mount_says, shown_mount_command, {"MOUNTPOINT=/nowhere/at/all"}) +
                  mount_says.info("MOUNTPOINT= MOUNTPOINT=/nowhere/at/all") +
                  mount_says.info("INF - response - EXIT_STATUS=0") +
                  mount_says.info("INF - mount point - /nowhere/at/all"));
}

TEST_F(Mount, ThatIsAliveSucceedsWhateverTheExitStatus)
{
    for (const std::string status : {"3", "25"}) {
        image.make_folder("backups"); // the unmount deletes them
        helper.answers({{"MNTPATH=/m/x", "MOUNTPOINT=" + image.path(), "EXIT_STATUS=" + status}});
        const std::size_t runs_before = helper.runs().size();
        EXPECT_STREQ(mount(), image.path().c_str()) << status;
        EXPECT_EQ(helper.runs().size(), runs_before + 1);
        ixfs_unmount(handle.get());
    }
}

TEST_F(Mount, TellsTheJobLogThatItWaits)
{
    helper.answers({mounts_image_with_path()});
    mount();
    EXPECT_EQ(job_log.lines(),
              std::vector<std::string>{"JBD - INF - waiting for mount mutex...\n"});
}

TEST_F(Mount, KeepsTheMountDirectoryAfterAFailure)
{
    helper.answers({{"EXIT_STATUS=3"}});
    EXPECT_EQ(mount(), nullptr);
    struct stat status {
    };
    EXPECT_EQ(::stat(mount_directory, &status), 0);
}

TEST_F(Mount, IgnoresTheReservedArgument)
{
    helper.answers({mounts_image()});
    ASSERT_STREQ(
        ixfs_mount(handle.get(), mount_cred, unmount_cred, port, server, 60, "/some/mount/path"),
        image.path().c_str());
    EXPECT_EQ(record_view::mount(handle.get()).mnt_path, std::nullopt);
}

TEST_F(Mount, KeepsCopiesOfItsArguments)
{
    helper.answers({mounts_image()});
    std::string own_server = server;
    std::string own_mount_cred = mount_cred;
    std::string own_unmount_cred = unmount_cred;
    ASSERT_NE(ixfs_mount(handle.get(), own_mount_cred.c_str(), own_unmount_cred.c_str(), port,
                         own_server.c_str(), 60, nullptr),
              nullptr);
    for (std::string* text : {&own_server, &own_mount_cred, &own_unmount_cred})
        text->assign(text->size(), '?');
    EXPECT_EQ(record_view::mount(handle.get()).server, server);
    EXPECT_EQ(record_view::mount(handle.get()).mount_cred, mount_cred);
    EXPECT_EQ(record_view::mount(handle.get()).unmount_cred, unmount_cred);
    EXPECT_EQ(record_view::mount(handle.get()).port, port);
    EXPECT_EQ(record_view::mount(handle.get()).control, handle.get());
    EXPECT_EQ(record_view::mount(handle.get()).thread_result, 0);
    EXPECT_FALSE(record_view::mount(handle.get()).holds_mutex);
}

struct TimeoutCase {
    unsigned int given;
    int stored;
    const char* option;
};

TEST_F(Mount, StoresATimeoutOfAtMostSixtySecondsAndPassesItOn)
{
    helper.answers({mounts_image()});
    for (const TimeoutCase& timeout :
         {TimeoutCase{600, 60, "-timeout 60 "}, TimeoutCase{UINT_MAX, 60, "-timeout 60 "},
          TimeoutCase{61, 60, "-timeout 60 "}, TimeoutCase{60, 60, "-timeout 60 "},
          TimeoutCase{59, 59, "-timeout 59 "}, TimeoutCase{1, 1, "-timeout 1 "},
          TimeoutCase{0, 0, ""}}) {
        SCOPED_TRACE(timeout.given);
        RecordedCommands commands;
        ASSERT_NE(mount(timeout.given), nullptr);
        EXPECT_EQ(record_view::mount(handle.get()).timeout, timeout.stored);
        EXPECT_EQ(commands.lines().at(0),
                  R"("/usr/varnis/stowline/bin/ixfs" mount -server media1 -port 40100 )" +
                      (timeout.option + std::string(timeout.stored == 0 ? " " : "")) +
                      " -cred mount-secret /usr/varnis/var/ixfs/media1");
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    }
}

TEST_F(Mount, LeavesTheMutexForTheUnmountToDelete)
{
    ASSERT_EQ(semaphore_sets().size(), 0U);
    helper.answers({mounts_image()});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(semaphore_sets().size(), 1U);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(Mount, SecondMountFailsAndLeavesTheFirstWorking)
{
    given_mount(mounts_image());
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(log.take(), Lines{mount_says.error("ERR - a mount has already been made")});
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_ALREADY_MOUNTED);
    EXPECT_EQ(helper.runs().size(), 1U);

    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(helper.runs().size(), 2U);
}

TEST_F(Mount, SuccessKeepsTheStatusOfAnEarlierFailure)
{
    helper.answers({{"EXIT_STATUS=3"}});
    ASSERT_EQ(mount(), nullptr);
    ASSERT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
    helper.answers({mounts_image()});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED) << "reading clears nothing";
}

TEST_F(Mount, OfTwoHandlesOnOneHostBothUnmount)
{
    const Handle other = make_handle();
    helper.answers({mounts_image()});
    ASSERT_NE(mount(), nullptr);
    ASSERT_NE(ixfs_mount(other.get(), mount_cred, unmount_cred, port, "media2", 60, nullptr),
              nullptr);
    EXPECT_EQ(semaphore_sets().size(), 1U);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK); // deletes the lock that the other one knows
    EXPECT_EQ(ixfs_unmount(other.get()), EC_OK);
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

// Arguments

TEST_F(Mount, OfAnInvalidHandleRecordsNothing)
{
    EXPECT_EQ(ixfs_mount(nullptr, mount_cred, unmount_cred, port, server, 60, nullptr), nullptr);
    record_view::mark_of(handle.get())[0] = 'i';
    EXPECT_EQ(mount(), nullptr);
    record_view::mark_of(handle.get())[0] = 'I';
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_OK);
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(Mount, RefusesAMissingServer)
{
    for (const char* missing : {static_cast<const char*>(nullptr), ""}) {
        EXPECT_EQ(ixfs_mount(handle.get(), mount_cred, unmount_cred, port, missing, 60, nullptr),
                  nullptr);
        EXPECT_EQ(log.take(),
                  Lines{mount_says.error("ERR - invalid parameter, invalid media server")});
        EXPECT_EQ(ixfs_last_error(handle.get()), EC_INVALID_PARAMETER);
        EXPECT_FALSE(record_view::has_mount(handle.get()));
    }
}

TEST_F(Mount, RefusesAPortBelowOne)
{
    for (const int bad : {0, -1, INT_MIN}) {
        EXPECT_EQ(ixfs_mount(handle.get(), mount_cred, unmount_cred, bad, server, 60, nullptr),
                  nullptr);
        EXPECT_EQ(log.take(),
                  Lines{mount_says.error("ERR - invalid parameter, invalid port number")});
        EXPECT_EQ(ixfs_last_error(handle.get()), EC_INVALID_PARAMETER);
    }
}

TEST_F(Mount, RefusesMissingCredentials)
{
    const char* const none = nullptr;
    const std::pair<const char*, const char*> pairs[] = {
        {none, unmount_cred}, {"", unmount_cred}, {mount_cred, none}, {mount_cred, ""}};
    for (const auto& [for_mount, for_unmount] : pairs) {
        EXPECT_EQ(ixfs_mount(handle.get(), for_mount, for_unmount, port, server, 60, nullptr),
                  nullptr);
        EXPECT_EQ(log.take(), Lines{mount_says.error("ERR - invalid credentials")});
        EXPECT_EQ(ixfs_last_error(handle.get()), EC_INVALID_PARAMETER);
    }
}

TEST_F(Mount, ChecksServerPortAndCredentialsInThisOrder)
{
    ixfs_mount(handle.get(), "", "", 0, "", 60, nullptr);
    ixfs_mount(handle.get(), "", "", 0, server, 60, nullptr);
    ixfs_mount(handle.get(), "", "", 1, server, 60, nullptr);
    EXPECT_EQ(log.lines(), (Lines{mount_says.error("ERR - invalid parameter, invalid media server"),
                                  mount_says.error("ERR - invalid parameter, invalid port number"),
                                  mount_says.error("ERR - invalid credentials")}));
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(Mount, SucceedsOnAHandleThatFailedBefore)
{
    EXPECT_EQ(ixfs_mount(handle.get(), mount_cred, unmount_cred, 0, server, 60, nullptr), nullptr);
    helper.answers({mounts_image()});
    EXPECT_STREQ(mount(), image.path().c_str());
}

} // namespace
