// Running the helper: again while the server is too busy, and every way in which a run ends.
#include "fake_time.h"
#include "mount_fixture.h"
#include "process_state.h"

#include <set>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>

namespace
{

const ScriptedHelper::Answer says_busy{"EXIT_STATUS=25"};

class HelperRun : public MountTest
{
protected:
    // Mounts with an image told by helpers that do not succeed, too.
    ScriptedHelper::Answer mounts_and_exits(const std::string& status) const
    {
        return {"MOUNTPOINT=" + image.path(), "EXIT_STATUS=" + status};
    }
};

TEST_F(HelperRun, BusyServerIsTriedAgainAfterOneSecond)
{
    FakeClock clock;
    helper.answers({says_busy, says_busy, says_busy, mounts_image()});
    EXPECT_STREQ(mount(), image.path().c_str());

    const Line again = mount_says.info("INF - too busy to connect, retrying command");
    const Lines busy_pass =
        lines_of_run(mount_says, shown_mount_command, {"EXIT_STATUS=25"}) + again;
    EXPECT_EQ(log.lines_here(),
              lines_before_mount_command() + busy_pass + busy_pass + busy_pass +
                  lines_of_run(mount_says, shown_mount_command, {"MOUNTPOINT=" + image.path()}) +
                  mount_says.info("MOUNTPOINT= MOUNTPOINT=" + image.path()) +
                  mount_says.info("INF - response - EXIT_STATUS=0") +
                  mount_says.info("INF - mount point - " + image.path()));
    EXPECT_EQ(helper.runs().size(), 4U);
    EXPECT_EQ(clock.sleeps(), (std::vector<double>{1, 1, 1}));
}

TEST_F(HelperRun, BusyServerIsTriedUntilTheTimeoutHasPassed)
{
    FakeClock clock;
    helper.answers({says_busy});
    EXPECT_EQ(mount(3), nullptr);

    const std::string shown =
        R"("/usr/varnis/stowline/bin/ixfs" mount -server media1 -port 40100 -timeout 3  )"
        R"(-cred mount-secret /usr/varnis/var/ixfs/me...)";
    const Lines pass = lines_of_run(mount_says, shown, {"EXIT_STATUS=25"});
    const Lines again{mount_says.info("INF - too busy to connect, retrying command")};
    EXPECT_EQ(log.lines(), lines_before_mount_command() + pass + again + pass + again + pass +
                               again + pass + mount_says.error("ERR - timeout period exceeded") +
                               mount_says.error("ERR - nothing is mounted"));
    EXPECT_EQ(clock.sleeps(), (std::vector<double>{1, 1, 1}));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
}

TEST_F(HelperRun, TimeoutZeroEndsWithTheFirstBusyAnswer)
{
    FakeClock clock;
    helper.answers({says_busy});
    EXPECT_EQ(mount(0), nullptr);

    const std::string shown =
        R"("/usr/varnis/stowline/bin/ixfs" mount -server media1 -port 40100   )"
        R"(-cred mount-secret /usr/varnis/var/ixfs/me...)";
    EXPECT_EQ(log.lines(), lines_before_mount_command() +
                               lines_of_run(mount_says, shown, {"EXIT_STATUS=25"}) +
                               mount_says.error("ERR - timeout period exceeded") +
                               mount_says.error("ERR - nothing is mounted"));
    EXPECT_EQ(helper.runs().size(), 1U);
    EXPECT_EQ(clock.sleeps(), std::vector<double>{});
}

TEST_F(HelperRun, TimeThatTheHelperTakesCounts)
{
    FakeClock clock;
    auto slow = interpose::on_popen([&](const char*, const char*) -> std::optional<FILE*> {
        clock.advance(30);
        return std::nullopt;
    });
    helper.answers({says_busy});
    EXPECT_EQ(mount(60), nullptr); // runs that begin at 0 and at 31 end at 30 and at 61
    EXPECT_EQ(helper.runs().size(), 2U);
    EXPECT_EQ(clock.sleeps(), std::vector<double>{1});
}

TEST_F(HelperRun, LastSecondOfTheTimeoutIsOver)
{
    FakeClock clock;
    auto slow = interpose::on_popen([&](const char*, const char*) -> std::optional<FILE*> {
        clock.advance(5);
        return std::nullopt;
    });
    helper.answers({says_busy});
    mount(5);
    EXPECT_EQ(helper.runs().size(), 1U);
    mount(6);
    EXPECT_EQ(helper.runs().size(), 3U);
}

// By an hour, at each run of the helper.
TEST_F(HelperRun, WallClockThatIsSetChangesNothing)
{
    for (const time_t by : {-3600, 3600}) {
        FakeClock clock;
        auto runs = interpose::on_popen([&](const char*, const char*) -> std::optional<FILE*> {
            clock.set_wall_clock_by(by);
            return std::nullopt;
        });
        helper.answers({says_busy, says_busy, says_busy, says_busy, says_busy, {"EXIT_STATUS=3"}});
        EXPECT_EQ(mount(3), nullptr);
        EXPECT_EQ(runs.calls(), 4);
        EXPECT_EQ(clock.sleeps(), (std::vector<double>{1, 1, 1}));
        EXPECT_EQ(log.with_message("ERR - timeout period exceeded\n").size(), 1U);
        log.take();
    }
}

TEST_F(HelperRun, ClockThatCannotBeReadAtTheStartEndsTheTrying)
{
    helper.answers({says_busy, {"EXIT_STATUS=0"}});
    bool first = true;
    const auto just_booted = interpose::on_time([&](clockid_t, timespec* now) {
        *now = {1, 0};
        return std::optional<int>(std::exchange(first, false) ? interpose::on_time.failed(EINVAL)
                                                              : 0);
    });
    const auto sleep = interpose::on_sleep.returns(0);
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(log.with_message("ERR - timeout period exceeded\n").size(), 1U);
    EXPECT_EQ(helper.runs().size(), 1U);
}

TEST_F(HelperRun, ClockThatCannotBeReadAnyMoreEndsTheTrying)
{
    helper.answers({says_busy, {"EXIT_STATUS=0"}});
    const auto clock = interpose::on_time.fails(EINVAL, 2); // the first call tells the start
    const auto sleep = interpose::on_sleep.returns(0);
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(log.with_message("ERR - timeout period exceeded\n").size(), 1U);
    EXPECT_EQ(sleep.calls(), 0);
    EXPECT_EQ(helper.runs().size(), 1U);
}

TEST_F(HelperRun, TimeoutDuringMountKeepsAMountPointAlreadyTold)
{
    FakeClock clock;
    helper.answers({mounts_and_exits("25")});
    EXPECT_STREQ(mount(0), image.path().c_str());
    EXPECT_EQ(log.with_message("ERR - timeout period exceeded\n").size(), 1U);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_OK);
}

TEST_F(HelperRun, AnyOtherExitStatusFails)
{
    helper.answers({{"EXIT_STATUS=3"}});
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(log.lines(), lines_before_mount_command() +
                               lines_of_run(mount_says, shown_mount_command, {"EXIT_STATUS=3"}) +
                               mount_says.error("ERR - command failed"));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
    EXPECT_EQ(helper.runs().size(), 1U);
}

TEST_F(HelperRun, ExitStatusFailsEvenWithAMountPointTold)
{
    helper.answers({mounts_and_exits("1")});
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
}

TEST_F(HelperRun, NegativeExitStatusFails)
{
    helper.answers({mounts_and_exits("-1")});
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
}

TEST_F(HelperRun, ProcessesOwnExitStatusIsNotUsed)
{
    helper.does("trap 'exit 3' EXIT");
    helper.answers({mounts_image()});
    EXPECT_STREQ(mount(), image.path().c_str());
}

TEST_F(HelperRun, FailureOfClosingTheStreamIsNotUsed)
{
    helper.answers({mounts_image()});
    int closed = 0;
    auto broken = interpose::on_pclose([&](FILE* pipe) -> std::optional<int> {
        ++closed;
        pclose(pipe);
        errno = ECHILD;
        return -1;
    });
    EXPECT_STREQ(mount(), image.path().c_str());
    EXPECT_EQ(closed, 1);
}

TEST_F(HelperRun, MountFailsWhenTheHelperCannotBeStarted)
{
    auto popen = interpose::on_popen.fails(EMFILE);
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(
        log.lines(),
        lines_before_mount_command() +
            mount_says.info("INF - running command - " + std::string(shown_mount_command)) +
            mount_says.error("ERR - unable to run command - " + std::string(shown_mount_command)));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
    EXPECT_EQ(popen.calls(), 1);
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(HelperRun, MountFailsWhenALaterRunCannotBeStarted)
{
    FakeClock clock;
    helper.answers({says_busy});
    auto popen = interpose::on_popen.fails(EAGAIN, 2);
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
    EXPECT_EQ(popen.calls(), 2);
}

TEST_F(HelperRun, MountFailsWhenTheCommandCannotBeBuilt)
{
    auto broken = interpose::on_snprintf([](const char* format) {
        const bool command = std::string(format).find("mount -server") != std::string::npos;
        return command ? std::optional<int>(-1) : std::nullopt;
    });
    auto popen = interpose::on_popen.watch();
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(log.lines(),
              lines_before_mount_command() + mount_says.error("ERR - unable to build command"));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
    EXPECT_EQ(popen.calls(), 0);
}

TEST_F(HelperRun, PipeIsNotPassedOnToOtherProcesses)
{
    helper.answers({mounts_image()});
    std::set<int> flags; // of what is read from
    const auto read = interpose::on_read([&](int descriptor, void*, size_t) {
        flags.insert(fcntl(descriptor, F_GETFD));
        return std::optional<ssize_t>();
    });
    EXPECT_NE(mount(), nullptr);
    EXPECT_EQ(flags, std::set<int>{FD_CLOEXEC});
}

TEST_F(HelperRun, HelperThatAnswersNothingMountsNothing)
{
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(log.lines(), lines_before_mount_command() +
                               lines_of_run(mount_says, shown_mount_command, {}) +
                               mount_says.error("ERR - nothing is mounted"));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
}

TEST_F(HelperRun, LeavesNoDescriptorOpenHoweverItEnds)
{
    const auto before = open_descriptors();
    for (const char* status : {"0", "25", "3"}) {
        helper.answers({{"EXIT_STATUS=" + std::string(status)}});
        mount(0);
        EXPECT_EQ(open_descriptors(), before) << status;
    }
    helper.answers({mounts_image()});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(open_descriptors(), before);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(open_descriptors(), before);
}

} // namespace
