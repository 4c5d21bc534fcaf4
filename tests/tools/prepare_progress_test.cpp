// The progress line of ixfs-prepare, and its colour.
#include "prepare_run_test.h"

#include <csignal>
#include <filesystem>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace
{

constexpr char clear_line[] = "\r\x1b[K";

class PrepareProgress : public PrepareRunTest
{
protected:
    PrepareProgress()
    {
        terminal.on_terminal = true;
        terminal.columns = 400;
        terminal.environment = {"TERM=xterm", "NO_COLOR="};
    }

    static std::string shown(const std::string& progress) { return clear_line + progress; }

    ProgramSetup terminal;
    SmallServer server{"media1", 3};
};

TEST_F(PrepareProgress, TellsWhoHoldsTheLock)
{
    const SmallServer other("media2");
    HangingCall mount;
    StartedProgram holder(command(other));
    mount.wait_until_hung();
    StartedProgram program(command(server), terminal);
    program.wait_for(shown("waiting for the host's lock 0 s, held by PID " +
                           std::to_string(worker_of(holder)) + " ("));
    program.wait_for("--server media2");
    program.wait_for(", user ");
    program.wait_for("waiting for the host's lock 1 s, held by");
    mount.let_go();
    EXPECT_EQ(program.wait().exit_status, 0);
    EXPECT_EQ(holder.wait().exit_status, 0);
}

TEST_F(PrepareProgress, TellsTheStepsAndLeavesNothingBehind)
{
    HangingCall mount;
    HangingCall unmount("umount");
    StartedProgram program(command(server), terminal);
    mount.wait_until_hung();
    program.wait_for(shown("mounting media1"));
    mount.let_go();
    unmount.wait_until_hung();
    program.wait_for(shown("unmounting"));
    unmount.let_go();
    const ProgramResult result = program.wait();
    EXPECT_EQ(result.exit_status, 0);
    // Each log line begins at a cleared line, and the last thing shown is cleared, too.
    EXPECT_THAT(result.errors, HasSubstr(std::string(clear_line) + "20"));
    const std::size_t last = result.errors.rfind(clear_line);
    EXPECT_EQ(result.errors.substr(last).find("unmounting"), std::string::npos);
}

TEST_F(PrepareProgress, CountsTheWaitForTheConfiguration)
{
    std::filesystem::rename(server.configuration(), server.root + "/hidden");
    StartedProgram program(command(server), terminal);
    program.wait_for(shown("waiting for the configuration 0 s of 20"));
    program.wait_for(shown("waiting for the configuration 1 s of 20"));
    program.send(SIGINT);
    program.wait_for("again to give up\r\n");
    program.wait_for(shown("finishing: waiting for the configuration, which cannot be cut short: "
                           "up to 1"));
    program.send(SIGINT);
    EXPECT_EQ(program.wait().exit_status, 128 + SIGINT);
}

TEST_F(PrepareProgress, IsCutToTheTerminal)
{
    terminal.columns = 12;
    HangingCall mount;
    StartedProgram program(command(server), terminal);
    mount.wait_until_hung();
    program.wait_for(shown("mounting me"));
    mount.let_go();
    EXPECT_THAT(program.wait().errors, Not(HasSubstr(shown("mounting med"))));
}

TEST_F(PrepareProgress, IsShownOnATerminalAlone)
{
    EXPECT_THAT(run(server).errors, Not(HasSubstr("\x1b")));
}

TEST_F(PrepareProgress, IsNotShownOnADumbTerminal)
{
    terminal.environment = {"TERM=dumb"};
    StartedProgram program(command(server), terminal);
    EXPECT_THAT(program.wait().errors, Not(HasSubstr("\x1b")));
}

TEST_F(PrepareProgress, IsNotShownWhenQuiet)
{
    StartedProgram program(command(server, {"--quiet"}), terminal);
    EXPECT_EQ(program.wait().errors, "");
}

constexpr char red[] = "\x1b[31mixfs-prepare: failed with status 29";

TEST_F(PrepareProgress, ColoursFailures)
{
    loopback.steer("mount", "status", "29");
    StartedProgram program(command(server), terminal);
    EXPECT_THAT(program.wait().errors, HasSubstr(red));
}

TEST_F(PrepareProgress, HasNoColourWithNoColor)
{
    loopback.steer("mount", "status", "29");
    terminal.environment.back() = "NO_COLOR=1";
    StartedProgram program(command(server), terminal);
    const ProgramResult result = program.wait();
    EXPECT_THAT(result.errors,
                AllOf(HasSubstr("ixfs-prepare: failed with status 29"),
                      HasSubstr(shown("mounting media1")), Not(HasSubstr("\x1b[3"))));
}

class PrepareOnTerminal : public PrepareProgress
{
};

// The terminal sends SIGINT to all of its foreground process group.
TEST_F(PrepareOnTerminal, CtrlCDoesNotReachTheHelper)
{
    HangingCall mount;
    StartedProgram program(command(server), terminal);
    mount.wait_until_hung();
    const std::vector<pid_t> running = helpers();
    program.type("\x03");
    program.wait_for("again to give up\r\n");
    EXPECT_EQ(helpers(), running);
    mount.let_go();
    const ProgramResult result = program.wait();
    EXPECT_EQ(result.exit_status, 128 + SIGINT);
    EXPECT_EQ(parsed(result)["status"], 0);
    EXPECT_TRUE(server.has_view());
    EXPECT_EQ(server.mounts(), 0);
}

} // namespace
