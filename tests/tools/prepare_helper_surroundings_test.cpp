// What the mount helper finds when ixfs-prepare runs it.
#include "prepare_test.h"

#include "process_mutex_set.h"
#include "started_program.h"

#include <csignal>
#include <sstream>

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace
{

class PrepareHelperFinds : public PrepareTest
{
protected:
    // What the helper's first run writes into the file "seen".
    std::string seen_by(const std::string& commands, const ProgramSetup& setup = {})
    {
        provide_image();
        helper.does("{ " + commands + "; } >> '" + (folder / "seen") + "'");
        StartedProgram program(command(), setup);
        EXPECT_EQ(program.wait().exit_status, 0);
        return folder.read("seen");
    }

    // The bit mask of signals in a line such as "SigIgn:\t0000000000001000" of a process's status.
    static unsigned long mask_of(const std::string& status, const std::string& name)
    {
        return std::stoul(status.substr(status.find(name) + name.size()), nullptr, 16);
    }
    static unsigned long bit(int signal) { return 1UL << (signal - 1); }
};

TEST_F(PrepareHelperFinds, NothingOnStandardInput)
{
    ProgramSetup setup;
    setup.input = "the caller's list of VMs\n";
    EXPECT_EQ(seen_by("cat; readlink /proc/self/fd/0", setup), "/dev/null\n/dev/null\n");
}

TEST_F(PrepareHelperFinds, NoDescriptorOfTheCaller)
{
    folder.write("lock", "");
    options["mount-cred-file"] = folder / "mount";
    provide_image();
    helper.does("ls -l /proc/$$/fd >> '" + (folder / "seen") + "'");
    EXPECT_EQ(
        run_redirected("9<'" + (folder / "lock") + "' > '" + (folder / "out") + "'").exit_status,
        0);
    EXPECT_THAT(folder.read("seen"), Not(HasSubstr("/lock")));
    EXPECT_THAT(folder.read("seen"), Not(HasSubstr("/out")));
}

TEST_F(PrepareHelperFinds, TheUsualSignals)
{
    const std::string status = seen_by("cat /proc/self/status");
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGCHLD}) {
        EXPECT_EQ(mask_of(status, "SigIgn:") & bit(signal), 0) << signal;
        EXPECT_EQ(mask_of(status, "SigBlk:") & bit(signal), 0) << signal;
        EXPECT_EQ(mask_of(status, "SigCgt:") & bit(signal), 0) << signal;
    }
}

// A shell may unblock what it finds blocked. The worker leads its session.
TEST_F(PrepareHelperFinds, AWorkerThatHoldsNoSignalBack)
{
    const std::string status = seen_by("read -r _ _ _ _ _ worker _ < /proc/$$/stat\n"
                                       "cat /proc/$worker/status");
    EXPECT_THAT(status, HasSubstr("Name:\tixfs-prepare\n"));
    EXPECT_EQ(mask_of(status, "SigBlk:"), 0U);
}

// Whoever reads the output waits for nobody but the program that was started.
TEST_F(PrepareHelperFinds, AWorkerWithoutTheCallersOutput)
{
    EXPECT_EQ(seen_by("read -r _ _ _ _ _ worker _ < /proc/$$/stat\n"
                      "readlink /proc/$worker/fd/1"),
              "/dev/null\n/dev/null\n");
}

TEST_F(PrepareHelperFinds, IgnoredWhatTheCallerIgnores)
{
    ProgramSetup setup;
    setup.ignored_signals = {SIGINT, SIGHUP, SIGPIPE};
    const std::string status = seen_by("cat /proc/self/status", setup);
    for (const int signal : {SIGINT, SIGHUP, SIGPIPE})
        EXPECT_NE(mask_of(status, "SigIgn:") & bit(signal), 0) << signal;
    EXPECT_EQ(mask_of(status, "SigIgn:") & bit(SIGTERM), 0);
}

TEST_F(PrepareHelperFinds, NoTerminal)
{
    ProgramSetup setup;
    setup.on_terminal = true;
    EXPECT_EQ(seen_by("(: < /dev/tty) 2> /dev/null && echo terminal; tty < /proc/self/fd/2", setup),
              "not a tty\nnot a tty\n");
}

class PrepareHelperErrors : public PrepareTest
{
};

TEST_F(PrepareHelperErrors, ArePassedOnAsTheyStand)
{
    provide_image();
    helper.does("printf 'two\\nlines \\033 and a half' >&2");
    const ProgramResult result = run();
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_THAT(result.errors, HasSubstr("two\n"));
    EXPECT_THAT(result.errors, HasSubstr("lines \033 and a half"));
}

TEST_F(PrepareHelperErrors, AreTheLastLinesOfAFailure)
{
    helper.does("echo 'no route to media1' >&2");
    helper.answers({{"EXIT_STATUS=29"}});
    flags = {"--quiet"};
    const ProgramResult result = run();
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.errors, HasSubstr("    no route to media1\n"));
}

TEST_F(PrepareHelperErrors, AreAbsentWhenQuietAndDone)
{
    provide_image();
    helper.does("echo 'nothing that matters' >&2");
    flags = {"--quiet"};
    const ProgramResult result = run();
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.errors, "");
}

// One that stays behind holds nothing that the caller waits for.
TEST_F(PrepareHelperErrors, DoNotKeepTheCallerWaiting)
{
    provide_image();
    // A pipe that nobody writes to is waited for as long as it takes.
    helper.does("mkfifo '" + (folder / "gate") + "' 2> /dev/null && { cat '" + (folder / "gate") +
                "' & } > /dev/null");
    StartedProgram program(command());
    EXPECT_EQ(program.wait().exit_status, 0);
    folder.write("gate", "");
}

TEST_F(PrepareHelperErrors, DoNotHideThatTheHelperIsMissing)
{
    std::remove("/usr/varnis/stowline/bin/ixfs");
    const ProgramResult result = run();
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.errors, HasSubstr("/usr/varnis/stowline/bin/ixfs: not found\n"));
}

// Ctrl-Z stops the program, but not its worker. What that says then does not fit into a pipe.
class PrepareHelperStopsTheProgram : public PrepareTest
{
protected:
    static bool is_lock_free()
    {
        const auto locks = process_mutex_set::values_of_all();
        return locks.empty() || locks.front()[process_mutex_set::lock] == 1;
    }
};

TEST_F(PrepareHelperStopsTheProgram, WhichDoesNotHoldTheHostsLockMeanwhile)
{
    helper.does("read -r _ _ _ _ _ worker _ < /proc/$$/stat\n"
                "read -r _ _ _ program _ < /proc/$worker/stat\n"
                "kill -STOP $program\n"
                "seq --format='%0100.f' 2000");
    helper.answers({{"EXIT_STATUS=29"}});
    StartedProgram program(command());
    ASSERT_TRUE(comes_true([&] { return !helper.runs().empty(); }));
    EXPECT_TRUE(comes_true(is_lock_free));
    program.send(SIGCONT);
    const ProgramResult result = program.wait();
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.errors, HasSubstr("0002000\n"));
}

} // namespace
