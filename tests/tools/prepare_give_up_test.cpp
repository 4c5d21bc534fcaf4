// ixfs-prepare is asked to end twice: it gives up at once, and says what is left and how to clean it.
#include "prepare_run_test.h"

#include <csignal>

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

namespace
{

class PrepareGivesUp : public PrepareRunTest
{
protected:
    // Sends two signals. The first counts.
    static ProgramResult interrupt_twice(StartedProgram& program)
    {
        program.send(SIGTERM);
        program.wait_for("again to give up\n");
        program.send(SIGINT);
        const ProgramResult result = program.wait();
        EXPECT_EQ(result.exit_status, 128 + SIGTERM);
        EXPECT_EQ(result.output, "");
        EXPECT_THAT(result.errors,
                    AllOf(HasSubstr("ixfs-prepare: given up; left of client_1 on media1:\n"),
                          HasSubstr("\nTo clean up: ixfsctl clean --server media1\n")));
        return result;
    }

    static constexpr int disks = 300;
    SmallServer server{"media1", disks};
};

TEST_F(PrepareGivesUp, WhileItMounts)
{
    HangingCall mount;
    StartedProgram program(command(server));
    mount.wait_until_hung();
    const std::vector<pid_t> running = helpers();
    ASSERT_FALSE(running.empty());
    const ProgramResult result = interrupt_twice(program);
    for (const pid_t helper : running)
        EXPECT_THAT(result.errors, HasSubstr("\n  a helper that still runs: PID " +
                                             std::to_string(helper) + " ("));
    EXPECT_THAT(result.errors,
                AllOf(HasSubstr("\n  the mount directory: " + server.mount_point + "\n"),
                      Not(HasSubstr("a mount:")), Not(HasSubstr("mount-secret"))));
    mount.let_go(); // it mounts now
    EXPECT_TRUE(comes_true([] { return helpers().empty(); }));
    EXPECT_EQ(server.mounts(), 1);
}

TEST_F(PrepareGivesUp, WhileItBuildsTheView)
{
    StartedProgram program(command(server));
    program.wait_until_errors_are_full();
    kill(worker_of(program), SIGSTOP);
    const ProgramResult result = interrupt_twice(program);
    EXPECT_THAT(result.errors,
                AllOf(HasSubstr("\n  a mount: " + server.mount_point + " (type tmpfs, source "),
                      HasSubstr("\n  in the image: the view folder _vmir, which may be half built"),
                      Not(HasSubstr("a helper that still runs"))));
    EXPECT_EQ(server.mounts(), 1);
    EXPECT_FALSE(server.has_view());
}

TEST_F(PrepareGivesUp, WhileItUnmounts)
{
    HangingCall unmount("umount");
    StartedProgram program(command(server, {"--quiet"}));
    unmount.wait_until_hung();
    const ProgramResult result = interrupt_twice(program);
    EXPECT_THAT(result.errors,
                AllOf(HasSubstr("\n  a helper that still runs: PID "),
                      HasSubstr("\n  a mount: " + server.mount_point + " (type tmpfs, source "),
                      Not(HasSubstr("half built"))));
    EXPECT_TRUE(server.has_view());
    unmount.let_go();
}

TEST_F(PrepareGivesUp, WhileNobodyReadsWhatItSays)
{
    HangingCall unmount("umount");
    StartedProgram program(command(server));
    program.wait_until_errors_are_full();
    program.send(SIGTERM);
    unmount.wait_until_hung(); // so it has taken the signal
    program.send(SIGINT);
    ASSERT_TRUE(comes_true([&] { return has_ended(program.pid()); }));
    EXPECT_EQ(program.wait().exit_status, 128 + SIGTERM);
    unmount.let_go();
}

} // namespace
