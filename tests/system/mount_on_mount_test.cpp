// Mounts that are really made: what they show, and what is left of those that fail.
#include "fake_time.h"
#include "loopback_test.h"
#include "record_view.h"

#include <atomic>
#include <filesystem>
#include <future>

#include <sys/mount.h>

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

class MountOnMount : public MountingTest
{
protected:
    // Expects that the image is there, where the mount point is.
    static void expect_mounted(const SampleServer& server)
    {
        EXPECT_EQ(server.mounts(), 1);
        EXPECT_TRUE(fs::equivalent(server.mount_point + "/" + server.image,
                                   server.root + "/" + server.image));
    }

    void expect_failed(const char* mount_point, ec_status status) const
    {
        EXPECT_EQ(mount_point, nullptr);
        EXPECT_EQ(ixfs_last_error(handle.get()), status);
    }

    // The errors of ixfs_mount, without their prefix and newline.
    std::vector<std::string> errors() const
    {
        const std::string prefix = "ERR - ";
        std::vector<std::string> errors;
        for (const Line& line : log.with_tag("ixfs_mount()")) {
            const std::string& message = line.message;
            if (line.severity == IXFS_LOG_ERR && message.rfind(prefix, 0) == 0)
                errors.push_back(message.substr(prefix.size(), message.size() - prefix.size() - 1));
        }
        return errors;
    }

    static constexpr char too_busy[] = "INF - too busy to connect, retrying command\n";
};

TEST_F(MountOnMount, ShowsTheServersImage)
{
    ASSERT_STREQ(mount(), server.mount_point.c_str());
    expect_mounted(server);
    EXPECT_THAT(loopback.calls(), ElementsAre(mount_call(server)));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_OK);
    EXPECT_THAT(errors(), IsEmpty());
}

TEST_F(MountOnMount, IsEndedByTerm)
{
    ASSERT_NE(mount(), nullptr);
    handle.reset();
    EXPECT_EQ(server.mounts(), 0);
    EXPECT_THAT(loopback.calls(), ElementsAre(mount_call(server), unmount_call(server)));
}

TEST_F(MountOnMount, OutlivesASecondTryOnTheSameHandle)
{
    ASSERT_NE(mount(), nullptr);
    const SampleServer other("other");
    expect_failed(mount(handle, other), EC_ALREADY_MOUNTED);
    EXPECT_EQ(other.mounts(), 0);
    expect_mounted(server);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
}

TEST_F(MountOnMount, TwoServersInOneProcessAreUnmountedOneAfterTheOther)
{
    const SampleServer other("other");
    const Handle other_handle = make_handle();
    ASSERT_NE(mount(), nullptr);
    ASSERT_NE(mount(other_handle, other), nullptr);
    expect_mounted(server);
    expect_mounted(other);

    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(server.mounts(), 0);
    expect_mounted(other);
    EXPECT_EQ(ixfs_unmount(other_handle.get()), EC_OK);
    EXPECT_EQ(other.mounts(), 0);
}

TEST_F(MountOnMount, IsTriedAgainWhileTheServerIsBusy)
{
    const FakeClock clock;
    loopback.steer("mount", "busy", "3");
    ASSERT_NE(mount(), nullptr);
    expect_mounted(server);
    EXPECT_THAT(loopback.calls(), SizeIs(4));
    EXPECT_THAT(clock.sleeps(), ElementsAre(1, 1, 1));
    EXPECT_THAT(log.with_message(too_busy), SizeIs(3));
}

TEST_F(MountOnMount, FailsWhenTheServerIsBusyForTooLong)
{
    const FakeClock clock;
    loopback.steer("mount", "busy", "100");
    expect_failed(mount(handle, server, 5), EC_SYSTEM_ERROR);
    EXPECT_THAT(loopback.calls(), SizeIs(6));
    EXPECT_THAT(clock.sleeps(), SizeIs(5));
    EXPECT_THAT(errors(), ElementsAre("timeout period exceeded", "nothing is mounted"));
}

TEST_F(MountOnMount, FailsWithAFailingHelper)
{
    loopback.steer("mount", "status", "42");
    expect_failed(mount(), EC_HELPER_FAILED);
    EXPECT_THAT(loopback.calls(), SizeIs(1));
    EXPECT_THAT(errors(), ElementsAre("command failed"));
    EXPECT_TRUE(fs::is_empty(server.mount_point)) << "the directory stays";
}

TEST_F(MountOnMount, FailsWithACredentialThatTheServerRefuses)
{
    loopback.steer("mount", "credential", "another");
    expect_failed(mount(), EC_HELPER_FAILED);
    EXPECT_THAT(errors(), ElementsAre("command failed"));
}

TEST_F(MountOnMount, CanBeTriedAgainOnTheHandleThatFailed)
{
    loopback.steer("mount", "status", "42");
    expect_failed(mount(), EC_HELPER_FAILED);
    loopback.steer("mount", "status", "0");
    ASSERT_NE(mount(), nullptr);
    expect_mounted(server);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED) << "a success clears nothing";
}

TEST_F(MountOnMount, WaitsForAHelperThatHangs)
{
    HangingCall hanging;
    auto mounted = std::async(std::launch::async, [this] { return mount() != nullptr; });
    hanging.wait_until_hung();
    EXPECT_EQ(mounted.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    EXPECT_EQ(server.mounts(), 0);
    hanging.let_go();
    EXPECT_TRUE(mounted.get());
    expect_mounted(server);
}

TEST_F(MountOnMount, IsUndoneWhenItHoldsNoBackups)
{
    fs::rename(server.root + "/backups", server.root + "/other");
    expect_failed(mount(), EC_HELPER_FAILED);
    EXPECT_EQ(server.mounts(), 0);
    EXPECT_FALSE(fs::exists(server.mount_point));
    EXPECT_THAT(loopback.calls(), ElementsAre(mount_call(server), unmount_call(server)));
    fs::rename(server.root + "/other", server.root + "/backups");
}

TEST_F(MountOnMount, IsTrustedWhenTheHelperTellsNoMountPath)
{
    loopback.steer("mount", "leave-out", "MNTPATH\n");
    ASSERT_NE(mount(), nullptr);
    expect_mounted(server);
    EXPECT_THAT(log.with_tag("_ixfs_mount_validate()"), IsEmpty());
}

TEST_F(MountOnMount, IsUnknownWhenTheHelperTellsNoMountPoint)
{
    loopback.steer("mount", "leave-out", "MOUNTPOINT\n");
    expect_failed(mount(), EC_SYSTEM_ERROR);
    EXPECT_THAT(errors(), ElementsAre("nothing is mounted"));
    EXPECT_EQ(server.mounts(), 1) << "nobody told where";
    umount2(server.mount_point.c_str(), MNT_DETACH);
}

TEST_F(MountOnMount, SucceedsWhenTheHelperTellsNoExitStatus)
{
    loopback.steer("mount", "leave-out", "EXIT_STATUS\n");
    ASSERT_NE(mount(), nullptr);
    expect_mounted(server);
}

TEST_F(MountOnMount, IsFoundGoneByTheValidationThread)
{
    std::promise<void> five_minutes;
    std::atomic<int> waits = 0;
    const auto wait = interpose::on_pthread_cond_timedwait(
        [&](pthread_cond_t*, pthread_mutex_t*, const timespec*) -> std::optional<int> {
            if (++waits > 1)
                return std::nullopt;
            five_minutes.get_future().wait();
            return ETIMEDOUT;
        });
    ASSERT_NE(mount(), nullptr);
    umount2(server.mount_point.c_str(), MNT_DETACH);
    five_minutes.set_value();
    EXPECT_TRUE(
        log.wait_for("ERR - ACE_OS::stat(" + server.mount_point + "/backups) failed, error = 2\n"));
}

TEST_F(MountOnMount, IsLeftAloneByAMinimalContextOfTheSameServer)
{
    ASSERT_NE(mount(), nullptr);
    const Handle other = make_handle();
    EXPECT_EQ(ixfs_recreate_minimal_context(other.get(), mount_cred, unmount_cred, port,
                                            server.name.c_str(), 30, "mount/path"),
              0);
    EXPECT_THAT(loopback.calls(), SizeIs(1)) << "no helper for a context";
    EXPECT_EQ(ixfs_unmount(other.get()), EC_INVALID_PARAMETER) << "no mount point";
    expect_mounted(server);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
}

} // namespace
