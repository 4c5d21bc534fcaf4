// ixfs-prepare looks whether its mount is gone.
#include "prepare_run_test.h"

#include "scripted_helper.h"

#include <csignal>
#include <filesystem>

#include <sys/mount.h>

using testing::AllOf;
using testing::HasSubstr;

namespace
{

std::vector<std::string> behind(std::vector<std::string> command,
                                const std::vector<std::string>& more)
{
    command.insert(command.end(), more.begin(), more.end());
    return command;
}

// This test has the library loaded, too, and so could be the one that mounts. What it runs like
// this cannot be meant by it.
std::vector<std::string> alone(const std::vector<std::string>& command)
{
    return behind({"/usr/bin/unshare", "--ipc", "--mount", "--propagation", "private"}, command);
}

class PrepareStillMounted : public PrepareRunTest
{
protected:
    void expect_still_mounted(const ProgramResult& result, int exit_status = 3) const
    {
        EXPECT_EQ(result.exit_status, exit_status);
        EXPECT_EQ(parsed(result)["still_mounted"], true);
        EXPECT_EQ(parsed(result)["mount_point"], server.mount_point);
        EXPECT_THAT(result.errors, AllOf(HasSubstr("ixfs-prepare: media1 is still mounted:\n  " +
                                                   server.mount_point + " (type tmpfs, source "),
                                         HasSubstr("ixfsctl clean --server media1\n")));
    }

    void expect_unmounted(const ProgramResult& result, int exit_status = 0) const
    {
        EXPECT_EQ(result.exit_status, exit_status) << result.errors;
        EXPECT_EQ(parsed(result)["still_mounted"], false);
        EXPECT_EQ(parsed(result)["mount_point"], nullptr);
    }

    SmallServer server{"media1"};
};

TEST_F(PrepareStillMounted, IsExitStatus3)
{
    loopback.steer("umount", "keep");
    const ProgramResult result = run(server);
    EXPECT_EQ(parsed(result)["status"], 0);
    expect_still_mounted(result);
}

TEST_F(PrepareStillMounted, WithoutAMountPathToo)
{
    loopback.steer("mount", "leave-out", "MNTPATH\n");
    loopback.steer("umount", "keep");
    expect_still_mounted(run(server));
}

// The mount table shows where the mount really is.
TEST_F(PrepareStillMounted, BelowALinkedMountBaseToo)
{
    const std::filesystem::path base = "/usr/varnis/var/ixfs";
    const std::filesystem::path elsewhere = "/usr/varnis/var/elsewhere";
    std::filesystem::remove(base);
    std::filesystem::create_directory(elsewhere);
    std::filesystem::create_directory_symlink(elsewhere, base);
    loopback.steer("umount", "keep");
    const ProgramResult result = run(server);
    EXPECT_EQ(result.exit_status, 3);
    EXPECT_EQ(parsed(result)["mount_point"], (elsewhere / "media1").string());
    umount2((elsewhere / "media1").c_str(), MNT_DETACH);
    std::filesystem::remove(base);
}

TEST_F(PrepareStillMounted, CountsMoreThanAFailure)
{
    loopback.steer("umount", "keep");
    std::filesystem::remove(server.root + "/backups/client/allusers/full/1/vm/disk0.vmdk");
    const ProgramResult result = run(server);
    EXPECT_NE(parsed(result)["status"], 0);
    EXPECT_EQ(parsed(result)["step"], "building the view");
    EXPECT_EQ(parsed(result)["disk"], server.disks().front());
    expect_still_mounted(result);
}

TEST_F(PrepareStillMounted, IsToldBesideASignal)
{
    loopback.steer("umount", "keep");
    HangingCall mount;
    StartedProgram program(command(server));
    mount.wait_until_hung();
    program.send(SIGINT);
    program.wait_for("again to give up");
    mount.let_go();
    expect_still_mounted(program.wait(), 128 + SIGINT);
}

TEST_F(PrepareStillMounted, IsNotSaidOfAMountThatWasThereBefore)
{
    std::filesystem::create_directories(server.mount_point);
    ASSERT_EQ(mount("earlier", server.mount_point.c_str(), "tmpfs", 0, nullptr), 0);
    expect_unmounted(run(server));
    EXPECT_EQ(server.mounts(), 1);
}

// Another preparation of the server follows at once. The kernel gives its mount the number of the
// one that is gone.
TEST_F(PrepareStillMounted, IsNotSaidOfAMountThatCameAfterwards)
{
    HangingCall unmount("umount");
    StartedProgram program(command(server));
    unmount.wait_until_hung();
    const pid_t worker = worker_of(program);
    program.send(SIGSTOP); // it looks late
    unmount.let_go();
    ASSERT_TRUE(comes_true([&] { return has_ended(worker); }));
    std::filesystem::create_directories(server.mount_point);
    ASSERT_EQ(mount(server.root.c_str(), server.mount_point.c_str(), nullptr, MS_BIND, nullptr), 0);
    program.send(SIGCONT);
    expect_unmounted(program.wait());
    EXPECT_EQ(server.mounts(), 1);
}

// Two preparations of one server. Each stands still in the middle until what it says is read.
class PrepareStillMountedByTwo : public PrepareRunTest
{
protected:
    SmallServer server{"media1", 300};
};

// The first one to end takes off the mount on top, which is the other's.
TEST_F(PrepareStillMountedByTwo, IsNotSaidOfWhatTheOtherTakesOff)
{
    StartedProgram lower(command(server));
    lower.wait_until_errors_are_full();
    StartedProgram upper(command(server));
    upper.wait_until_errors_are_full();
    ASSERT_EQ(server.mounts(), 2);
    EXPECT_EQ(lower.wait().exit_status, 0);
    EXPECT_EQ(server.mounts(), 1);
    EXPECT_EQ(upper.wait().exit_status, 0);
    EXPECT_EQ(server.mounts(), 0);
}

TEST_F(PrepareStillMountedByTwo, IsSaidWhenTheOtherIsGone)
{
    StartedProgram lower(alone(command(server)));
    lower.wait_until_errors_are_full();
    {
        const std::string there = std::to_string(lower.pid());
        StartedProgram upper(
            behind({"/usr/bin/nsenter", "--ipc", "--mount", "--target", there}, command(server)));
        upper.wait_until_errors_are_full();
        const pid_t worker = worker_of(upper);
        kill(worker, SIGKILL);
        ASSERT_TRUE(comes_true([&] { return has_ended(worker); }));
    }
    const ProgramResult result = lower.wait();
    EXPECT_EQ(result.exit_status, 3);
    EXPECT_EQ(parsed(result)["still_mounted"], true);
}

// The helper mounts, and reports a failure: the library does not unmount then.
class PrepareHelperMounts : public PrepareStillMounted
{
protected:
    ScriptedHelper helper;
    const std::string mount_it =
        "mkdir -p " + server.mount_point + "; mount -t tmpfs scripted " + server.mount_point;
};

TEST_F(PrepareHelperMounts, AndFails)
{
    helper.does("[ $1 = umount ] || { " + mount_it + "; }");
    helper.answers({{"EXIT_STATUS=29"}});
    const ProgramResult result = run(server);
    EXPECT_EQ(parsed(result)["status"], 29);
    EXPECT_EQ(parsed(result)["helper"]["exit_status"], 29);
    expect_still_mounted(result);
}

// A mount that comes while the helper is to unmount: nobody saw who made it.
class PrepareLateMount : public PrepareHelperMounts
{
protected:
    PrepareLateMount()
    {
        std::filesystem::create_directories(server.mount_point);
        std::filesystem::copy(server.root, server.mount_point,
                              std::filesystem::copy_options::recursive);
        helper.does("[ $1 = mount ] || { " + mount_it + "; }");
        helper.answers({{"MOUNTPOINT=" + server.mount_point, "EXIT_STATUS=0"}, {"EXIT_STATUS=0"}});
    }
    ~PrepareLateMount() override
    {
        umount2(server.mount_point.c_str(), MNT_DETACH);
        std::filesystem::remove_all(server.mount_point);
    }
};

TEST_F(PrepareLateMount, IsItsOwnWhereNobodyElseUsesTheLibrary)
{
    expect_still_mounted(run_program(alone(command(server))));
}

TEST_F(PrepareLateMount, MayBeAnothersElsewhere)
{
    expect_unmounted(run(server)); // this test has the library loaded
    EXPECT_EQ(server.mounts(), 1);
}

} // namespace
