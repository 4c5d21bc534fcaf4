// ixfs-prepare is asked to end, once: whatever it does at the time, the image is unmounted.
#include "prepare_run_test.h"

#include "scripted_helper.h"

#include <csignal>
#include <filesystem>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace
{

constexpr char answer[] =
    "ixfs-prepare: finishing; the image will be unmounted; again to give up\n";

class PrepareSignal : public PrepareRunTest, public testing::WithParamInterface<int>
{
protected:
    // Sends the signal, and waits until it is answered.
    static void interrupt(StartedProgram& program)
    {
        program.send(GetParam());
        program.wait_for(answer);
    }

    // The program must have prepared the VM all the same.
    void expect_prepared(StartedProgram& program) const
    {
        const ProgramResult result = program.wait();
        EXPECT_EQ(result.exit_status, 128 + GetParam());
        const nlohmann::json json = parsed(result);
        EXPECT_EQ(json["status"], 0) << result.errors;
        EXPECT_EQ(json["signal"], GetParam());
        EXPECT_EQ(json["still_mounted"], false);
        EXPECT_EQ(server.mounts(), 0);
        EXPECT_TRUE(server.has_view());
        EXPECT_THAT(helper_calls(), ElementsAre("mount media1", "umount media1"));
    }

    static constexpr int disks = 300;
    SmallServer server{"media1", disks};
};

INSTANTIATE_TEST_SUITE_P(Each, PrepareSignal, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& tested) {
                             return "SIG" + std::string(sigabbrev_np(tested.param));
                         });

TEST_P(PrepareSignal, WhileItWaitsForTheLockEndsItAtOnce)
{
    const SmallServer other("media2");
    HangingCall mount;
    StartedProgram holder(command(other));
    mount.wait_until_hung();
    StartedProgram program(command(server));
    program.wait_for("INF - waiting for mount mutex...");
    program.send(GetParam());
    const ProgramResult result = program.wait();
    EXPECT_EQ(result.exit_status, 128 + GetParam());
    EXPECT_THAT(result.errors, HasSubstr(answer));
    EXPECT_EQ(parsed(result)["step"], "waiting for the host's lock");
    EXPECT_NE(parsed(result)["status"], 0);
    EXPECT_THAT(helper_calls(), ElementsAre("mount media2"));

    mount.let_go();
    EXPECT_EQ(holder.wait().exit_status, 0);
}

TEST_P(PrepareSignal, WhileItMountsIsFollowedByTheUnmount)
{
    HangingCall mount;
    StartedProgram program(command(server));
    mount.wait_until_hung();
    interrupt(program);
    mount.let_go();
    expect_prepared(program);
}

// What it says is not read, so it cannot go on: it stands in the middle of the disks.
TEST_P(PrepareSignal, WhileItBuildsTheViewIsFollowedByTheUnmount)
{
    StartedProgram program(command(server));
    program.wait_until_errors_are_full();
    const pid_t worker = worker_of(program);
    kill(worker, SIGSTOP);
    interrupt(program);
    EXPECT_THAT(program.errors(), Not(HasSubstr("ixfs_unmount()")));
    EXPECT_FALSE(server.has_view());
    kill(worker, SIGCONT);
    expect_prepared(program);
}

TEST_P(PrepareSignal, WhileItUnmountsLetsItUnmount)
{
    HangingCall unmount("umount");
    StartedProgram program(command(server, {"--quiet"}));
    unmount.wait_until_hung();
    interrupt(program);
    EXPECT_EQ(server.mounts(), 1);
    unmount.let_go();
    expect_prepared(program);
}

// A mount that fails has nothing to be unmounted.
TEST_P(PrepareSignal, IsAnsweredWhereTheMountFailsToo)
{
    loopback.steer("mount", "status", "29");
    HangingCall mount;
    StartedProgram program(command(server));
    mount.wait_until_hung();
    interrupt(program);
    mount.let_go();
    const ProgramResult result = program.wait();
    EXPECT_EQ(result.exit_status, 128 + GetParam());
    EXPECT_EQ(parsed(result)["status"], 29);
    EXPECT_EQ(parsed(result)["step"], "mounting");
}

class PrepareConfigurationWait : public PrepareRunTest
{
protected:
    // The library looks again after ten seconds, or when a signal ends its pause. The worker does
    // not mind the signal, but must be in the pause.
    static void end_pause(pid_t worker, StartedProgram& program)
    {
        while (kill(worker, SIGHUP) == 0 &&
               program.errors().find("readXml: INF - Read file size") == std::string::npos) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            program.read_what_is_there();
        }
    }

    SmallServer server{"media1"};
};

TEST_F(PrepareConfigurationWait, TellsHowLongItMayTakeAfterASignal)
{
    std::filesystem::rename(server.configuration(), server.root + "/hidden");
    StartedProgram program(command(server));
    program.wait_for("INF - waiting for VM Config file to be accessible");
    program.send(SIGTERM);
    program.wait_for(answer);
    program.wait_for("ixfs-prepare: waiting for the configuration of client_1, which cannot be cut "
                     "short: up to ");
    std::filesystem::rename(server.root + "/hidden", server.configuration());
    end_pause(worker_of(program), program);
    const ProgramResult result = program.wait();
    EXPECT_EQ(result.exit_status, 128 + SIGTERM);
    EXPECT_EQ(parsed(result)["status"], 0);
    EXPECT_EQ(server.mounts(), 0);
}

class PrepareIgnores : public PrepareRunTest
{
protected:
    SmallServer server{"media1"};
};

TEST_F(PrepareIgnores, SignalsThatItsCallerIgnores)
{
    HangingCall mount;
    ProgramSetup setup;
    setup.ignored_signals = {SIGHUP, SIGINT};
    StartedProgram program(command(server), setup);
    mount.wait_until_hung();
    program.send(SIGHUP);
    program.send(SIGINT);
    mount.let_go();
    const ProgramResult result = program.wait();
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_THAT(result.errors, Not(HasSubstr("finishing")));
    EXPECT_EQ(parsed(result)["signal"], nullptr);
}

class PrepareSurvives : public PrepareRunTest
{
protected:
    SmallServer server{"media1"};
};

// As "pkill ixfs-prepare" does.
TEST_F(PrepareSurvives, ASignalToAllItsProcesses)
{
    HangingCall mount;
    StartedProgram program(command(server));
    mount.wait_until_hung();
    kill(worker_of(program), SIGTERM);
    program.send(SIGTERM);
    program.wait_for(answer);
    mount.let_go();
    EXPECT_EQ(program.wait().exit_status, 128 + SIGTERM);
    EXPECT_EQ(server.mounts(), 0);
    EXPECT_TRUE(server.has_view());
}

// As timeout(1) and service managers do. It gave no answer yet, so nobody asks again.
TEST_F(PrepareSurvives, SeveralSignalsAtOnce)
{
    HangingCall mount;
    StartedProgram program(command(server));
    mount.wait_until_hung();
    for (const int signal : {SIGSTOP, SIGINT, SIGTERM, SIGCONT})
        program.send(signal);
    program.wait_for(answer);
    mount.let_go();
    EXPECT_EQ(program.wait().exit_status, 128 + SIGINT);
    EXPECT_EQ(server.mounts(), 0);
    EXPECT_TRUE(server.has_view());
}

// The kernel and the shell each send one.
TEST_F(PrepareSurvives, TheEndOfItsTerminal)
{
    HangingCall mount;
    StartedProgram program(command(server));
    mount.wait_until_hung();
    program.send(SIGHUP);
    program.wait_for(answer);
    program.send(SIGHUP);
    mount.let_go();
    EXPECT_EQ(program.wait().exit_status, 128 + SIGHUP);
    EXPECT_EQ(server.mounts(), 0);
    EXPECT_TRUE(server.has_view());
}

TEST_F(PrepareSurvives, ItsOwnEndAndUnmounts)
{
    HangingCall mount;
    StartedProgram program(command(server));
    mount.wait_until_hung();
    program.send(SIGKILL);
    mount.let_go();
    EXPECT_EQ(program.wait().exit_status, -1); // the worker's end, too: it has the same output
    EXPECT_EQ(server.mounts(), 0);
    EXPECT_TRUE(server.has_view());
    EXPECT_THAT(helper_calls(), ElementsAre("mount media1", "umount media1"));
}

TEST_F(PrepareSurvives, TheEndOfItsWorkerAndSaysSo)
{
    HangingCall mount;
    StartedProgram program(command(server));
    mount.wait_until_hung();
    kill(worker_of(program), SIGKILL);
    const ProgramResult result = program.wait();
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_EQ(parsed(result)["status_text"], "its process was ended by signal 9");
    EXPECT_EQ(parsed(result)["step"], "mounting");
    EXPECT_THAT(result.errors, HasSubstr("ixfs-prepare: the helper of media1 still runs, and may "
                                         "still mount:\n  PID "));
    EXPECT_THAT(result.errors, HasSubstr("\nTo clean up: ixfsctl clean --server media1\n"));
    mount.let_go();
    EXPECT_TRUE(comes_true([] { return helpers().empty(); }));
    EXPECT_EQ(server.mounts(), 1); // the helper lived on
}

class PrepareSurvivesAPager : public PrepareRunTest
{
protected:
    SmallServer server{"media1", 300};
};

// The program waits for it neither with the image mounted, nor longer than a second at its end.
TEST_F(PrepareSurvivesAPager, ThatNobodyScrolls)
{
    StartedProgram program(command(server));
    program.wait_until_errors_are_full();
    program.send(SIGTERM);
    ASSERT_TRUE(comes_true([&] { return has_ended(program.pid()); }));
    const ProgramResult result = program.wait();
    EXPECT_EQ(result.exit_status, 128 + SIGTERM);
    EXPECT_EQ(parsed(result)["status"], 0);
    EXPECT_EQ(server.mounts(), 0);
    EXPECT_TRUE(server.has_view());
}

TEST_F(PrepareSurvives, TheEndOfItsWorkerWhileItUnmounts)
{
    HangingCall unmount("umount");
    StartedProgram program(command(server));
    unmount.wait_until_hung();
    kill(worker_of(program), SIGKILL);
    const ProgramResult result = program.wait();
    EXPECT_EQ(result.exit_status, 3);
    EXPECT_EQ(parsed(result)["step"], "unmounting");
    EXPECT_EQ(parsed(result)["still_mounted"], true);
    unmount.let_go();
}

// Its worker, when nobody listens any more.
class PrepareOrphan : public PrepareSurvives
{
protected:
    ScriptedHelper helper;
};

// What the helper writes then does not end it for lack of a reader.
TEST_F(PrepareOrphan, LetsTheHelperComplain)
{
    const std::string gate = folder / "gate";
    ASSERT_EQ(mkfifo(gate.c_str(), 0600), 0);
    helper.does("case $1 in\n"
                "mount) mount --bind " +
                server.root + " " + server.mount_point + "; cat " + gate +
                ";;\n"
                "umount) echo a complaint >&2; umount " +
                server.mount_point +
                ";;\n"
                "esac");
    helper.answers({{"MOUNTPOINT=" + server.mount_point, "EXIT_STATUS=0"}, {"EXIT_STATUS=0"}});
    StartedProgram program(command(server));
    const int writer = open(gate.c_str(), O_WRONLY);
    program.send(SIGKILL);
    close(writer);
    EXPECT_THAT(program.wait().errors, HasSubstr("a complaint\n"));
    EXPECT_EQ(server.mounts(), 0);
    EXPECT_TRUE(server.has_view());
}

} // namespace
