// ixfsctl status, on a sound host and on broken ones.
#include "ctl_test.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>

#include <unistd.h>

namespace fs = std::filesystem;
using nlohmann::json;
using testing::AllOf;
using testing::ContainsRegex;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::UnorderedElementsAre;

namespace
{

class CtlStatus : public CtlTest
{
protected:
    ~CtlStatus() override { run_ctl({"clean", "--yes"}); }

    static std::string status_text() { return run_ctl({"status"}).output; }

    // What the schema does not tell of a directory.
    static json only_directory(const json& status)
    {
        EXPECT_EQ(status.at("mount_directories").size(), 1U);
        return status.at("mount_directories").at(0);
    }
};

TEST_F(CtlStatus, SoundHostHasNoFindings)
{
    const ProgramResult result = run_ctl({"status"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(result.output, HasSubstr("ixfs is runnable\n"));
    EXPECT_THAT(result.output, HasSubstr("Mount lock: nobody uses it\n"));
    EXPECT_THAT(result.output, HasSubstr("\nNothing is wrong.\n"));
    EXPECT_THAT(finding_ids(status_of_host()), IsEmpty());
    EXPECT_EQ(count_semaphore_sets(), 0U) << "it only looks";
}

TEST_F(CtlStatus, HostThatNeverMountedIsSound)
{
    fs::remove("/usr/varnis/var/ixfs");
    EXPECT_THAT(finding_ids(status_of_host()), IsEmpty());
}

TEST_F(CtlStatus, HelperThatCannotBeRunIsFound)
{
    const fs::path helper = "/usr/varnis/stowline/bin/ixfs";
    fs::permissions(helper, fs::perms(0644));
    EXPECT_EQ(status_of_host().at("helper").at("problem"), "is not executable");
    fs::remove(helper);
    EXPECT_EQ(status_of_host().at("helper").at("problem"), "is missing");
    EXPECT_THAT(finding_ids(status_of_host()), ElementsAre("helper_not_runnable"));
    fs::create_directory(helper);
    EXPECT_EQ(status_of_host().at("helper").at("problem"), "is not a file");
    EXPECT_THAT(status_text(), HasSubstr("nothing can be mounted"));
}

TEST_F(CtlStatus, MountWithoutALivingCallerIsStale)
{
    mount_on("site/media1", "first");
    mount_on("site/media1", "second");
    const json status = status_of_host();
    const json directory = only_directory(status);
    EXPECT_EQ(directory.at("server"), "site/media1");
    EXPECT_EQ(directory.at("layers").at(0).at("source"), "first");
    EXPECT_EQ(directory.at("layers").at(1).at("source"), "second");
    EXPECT_EQ(directory.at("layers").at(1).at("type"), "tmpfs");
    EXPECT_EQ(directory.at("backups"), "found");
    EXPECT_EQ(directory.at("stale"), true);
    EXPECT_THAT(finding_ids(status), ElementsAre("stale_mount"));
    EXPECT_THAT(status_text(), HasSubstr("-> `ixfsctl clean --server site/media1`"));
}

TEST_F(CtlStatus, MountWithALivingCallerIsNotStale)
{
    mount_on("media1");
    ChildProcess caller = start_caller([] { return lock_view_in_caller(); });
    caller.wait_for_pause();
    EXPECT_EQ(only_directory(status_of_host()).at("stale"), false);
    EXPECT_THAT(finding_ids(status_of_host()), IsEmpty());

    mount_on("media1");
    EXPECT_THAT(finding_ids(status_of_host()), ElementsAre("stacked_mounts"));
    caller.kill();
    caller.wait();
}

TEST_F(CtlStatus, MountWithoutBackupsIsFound)
{
    mount_on("media1");
    fs::remove(directory_of("media1") + "/backups");
    EXPECT_EQ(only_directory(status_of_host()).at("backups"), "missing");
    EXPECT_THAT(finding_ids(status_of_host()), ElementsAre("stale_mount", "no_backups"));
}

TEST_F(CtlStatus, HungMountsHangNeitherTheToolNorWhoReadsItsOutput)
{
    try {
        const HungMount first(make_directory("media1"));
        const HungMount second(make_directory("media2"));
        const ProgramResult result =
            run_program({"/bin/sh", "-c", IXFSCTL_PROGRAM " status --json | cat"});
        const json status = json::parse(result.output);
        EXPECT_THAT(finding_ids(status),
                    ElementsAre("stale_mount", "hung_mount", "stale_mount", "hung_mount"));
        EXPECT_EQ(status.at("mount_directories").at(1).at("backups"), "no_answer");
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << error.what();
    }
}

TEST_F(CtlStatus, LooksThatHangDoNotPileUpAndKeepNothingOpen)
{
    try {
        HungMount hung(make_directory("media1"));
        hung.swallow_requests();
        const std::vector<std::string> locked_status = {"/usr/bin/flock",
                                                        "--nonblock",
                                                        "--conflict-exit-code",
                                                        "9",
                                                        folder / "lock",
                                                        IXFSCTL_PROGRAM,
                                                        "status",
                                                        "--json"};
        const json status = json::parse(run_program(locked_status).output);
        const int mount = only_directory(status).at("layers").at(0).at("id");
        const auto hanging_looks = [mount](const std::string& age) {
            return run_program({"/usr/bin/pgrep", "--count", "--runstates", "D", "--older", age,
                                "--exact", "look " + std::to_string(mount)})
                .output;
        };
        look_until([&] { return hanging_looks("2") == "1\n"; }); // then it counts as given up
        EXPECT_EQ(run_program(locked_status).exit_status, 1) << "nobody has the lock";
        EXPECT_EQ(hanging_looks("0"), "1\n");
        EXPECT_THAT(finding_ids(status_of_host()), ElementsAre("stale_mount", "hung_mount"));
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << error.what();
    }
}

TEST_F(CtlStatus, WhatStandsInTheWayOfMountsIsFound)
{
    fs::create_symlink("/tmp", directory_of("link"));
    folder.write("file", "");
    fs::copy(folder / "file", make_directory("media1"));
    make_directory("media2"); // an empty directory is no harm
    const json status = status_of_host();
    EXPECT_THAT(finding_ids(status), ElementsAre("not_a_directory", "directory_holds_files"));
    EXPECT_EQ(status.at("mount_directories").size(), 3U);
    EXPECT_THAT(status_text(), HasSubstr("`rm /usr/varnis/var/ixfs/link`"));
}

TEST_F(CtlStatus, HolderOfTheMountLockAndWhoWaitsForItAreNamed)
{
    ChildProcess holder = start_caller_in_helper();
    std::vector<ChildProcess> waiters;
    for (int i = 0; i < 2; ++i)
        waiters.push_back(start_caller([] { return mount_in_caller("media1"); }));
    json status;
    look_until([&] {
        status = json::parse(run_ctl({"status", "--json"}).output);
        return status.at("mount_mutex").at("waiters").size() == 2;
    });
    const json mutex = status_of_host().at("mount_mutex");
    EXPECT_EQ(mutex.at("held"), true);
    EXPECT_EQ(mutex.at("users"), 3);
    EXPECT_EQ(mutex.at("waiting"), 2);
    EXPECT_EQ(mutex.at("holder").at("parent"), getpid());
    EXPECT_EQ(mutex.at("holder").at("user"), "root");
    for (const json& waiter : mutex.at("waiters"))
        EXPECT_NE(waiter.at("pid"), mutex.at("holder").at("pid"));

    const std::string pid = std::to_string(mutex.at("holder").at("pid").get<pid_t>());
    const std::string text = status_text();
    EXPECT_THAT(text, HasSubstr("Mount lock: held by PID " + pid + " ("));
    EXPECT_THAT(text, HasSubstr("; 2 waiting\n"));
    EXPECT_THAT(text, HasSubstr("Nothing is wrong."));
    EXPECT_THAT(text, AllOf(HasSubstr("-cred *** "), Not(HasSubstr("s3cret"))));

    holder.send(SIGSTOP);
    look_until([&] { return !finding_ids(status_of_host()).empty(); });
    EXPECT_THAT(finding_ids(status_of_host()), ElementsAre("stopped_holder"));
    EXPECT_THAT(status_text(), HasSubstr("`kill -CONT " + pid + "`"));
    for (ChildProcess& waiter : waiters)
        waiter.kill();
    holder.kill();
}

TEST_F(CtlStatus, LockThatAKilledProcessLeftIsFound)
{
    ChildProcess view = start_caller([] { return lock_view_in_caller(); });
    view.wait_for_pause();
    const json status = status_of_host();
    EXPECT_TRUE(status.at("mount_mutex").is_null());
    EXPECT_EQ(status.at("view_locks").size(), 1U);
    EXPECT_EQ(status.at("view_locks").at(0).at("holder").at("parent"), getpid());
    EXPECT_THAT(finding_ids(status), IsEmpty());

    view.kill();
    view.wait();
    EXPECT_THAT(finding_ids(status_of_host()), ElementsAre("unused_view_lock"));
}

TEST_F(CtlStatus, HelperOfAKilledCallerIsFound)
{
    ChildProcess caller = start_caller_in_helper();
    const json before = status_of_host();
    EXPECT_THAT(finding_ids(before), IsEmpty());
    EXPECT_FALSE(before.at("helper_processes").empty());
    const ProgramResult slow = run_ctl({"status", "--slow-after", "0"});
    caller.kill();
    caller.wait();
    const json after = status_of_host();
    EXPECT_THAT(finding_ids(after), ElementsAre("unused_mount_mutex", "orphaned_helper"));
    for (const json& helper : after.at("helper_processes"))
        EXPECT_EQ(helper.at("orphaned"), true);
}

TEST_F(CtlStatus, HelperThatWasStartedByHandIsNoOrphan)
{
    run_program({"/usr/bin/mkfifo", folder / "begun", folder / "gate"});
    helper_does("echo > '" + (folder / "begun") + "'; read line < '" + (folder / "gate") + "'");
    const ProgramResult result = run_program(
        {"/bin/sh", "-c",
         "cd '" + folder.path() +
             "'; /usr/varnis/stowline/bin/ixfs mount x | cat & read line < begun; " IXFSCTL_PROGRAM
             " status --json; echo > gate; wait"});
    EXPECT_THAT(result.output, HasSubstr("\"orphaned\": false"));
    EXPECT_THAT(finding_ids(json::parse(result.output)), IsEmpty());
}

TEST_F(CtlStatus, OtherUserIsToldWhatHeCannotKnow)
{
    mount_on("media1");
    fs::copy(IXFSCTL_PROGRAM, "/usr/varnis/var/ixfsctl");
    const std::vector<std::string> look = {"/usr/bin/setpriv", "--reuid=65534", "--clear-groups",
                                           "/usr/varnis/var/ixfsctl", "status"};
    std::vector<std::string> look_as_json = look;
    look_as_json.emplace_back("--json");
    const ProgramResult result = run_program(look_as_json);
    const ProgramResult text = run_program(look);
    fs::remove("/usr/varnis/var/ixfsctl");
    if (result.exit_status == 127)
        GTEST_SKIP() << "this namespace has one user alone";
    const json status = json::parse(result.output);
    EXPECT_GT(status.at("hidden_processes"), 0);
    EXPECT_THAT(text.output, ContainsRegex("perhaps among [0-9]+ process(es)? that this user"));
    EXPECT_TRUE(only_directory(status).at("stale").is_null());
    EXPECT_THAT(finding_ids(status), IsEmpty());
}

TEST_F(CtlStatus, RootWithoutThePowerToLookIsToldWhatHeCannotKnow)
{
    mount_on("media1");
    ChildProcess caller = start_caller([] { return lock_view_in_caller(); });
    caller.wait_for_pause();
    const ProgramResult with_caller =
        run_program({"/usr/bin/setpriv", "--bounding-set=-sys_ptrace", "--inh-caps=-sys_ptrace",
                     IXFSCTL_PROGRAM, "status", "--json"});
    EXPECT_TRUE(only_directory(json::parse(with_caller.output)).at("stale").is_null());
    caller.kill();
    caller.wait();
}

TEST_F(CtlStatus, UsedUpSemaphoresAreFound)
{
    std::ifstream limits("/proc/sys/kernel/sem");
    const std::string before{std::istreambuf_iterator<char>(limits), {}};
    if (!(std::ofstream("/proc/sys/kernel/sem") << "250 32000 32 0\n" << std::flush))
        GTEST_SKIP() << "this namespace may not set its limits";
    EXPECT_THAT(finding_ids(status_of_host()), ElementsAre("no_semaphores"));
    std::ofstream("/proc/sys/kernel/sem") << before;
    EXPECT_THAT(finding_ids(status_of_host()), IsEmpty());
}

TEST_F(CtlStatus, MetricsAreWellFormedAndCount)
{
    mount_on("media1");
    ChildProcess caller = start_caller_in_helper();
    const ProgramResult living = run_ctl({"status", "--openmetrics"});
    EXPECT_THAT(living.output, HasSubstr("\nixfs_mount_mutex_held 1\n"));
    EXPECT_THAT(living.output, HasSubstr("\nixfs_stale_mounts 0\n"));
    caller.kill();
    caller.wait();
    const ProgramResult result = run_ctl({"status", "--openmetrics"});
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.output, HasSubstr("\nixfs_mounts 1\n"));
    EXPECT_THAT(result.output, HasSubstr("\nixfs_stale_mounts 1\n"));
    EXPECT_THAT(result.output, HasSubstr("\nixfs_findings 3\n"));
    EXPECT_THAT(result.output, testing::EndsWith("# EOF\n"));
    const ProgramResult judged = run_program({IXFS_PROMTOOL, "check", "metrics"}, {result.output});
    EXPECT_EQ(judged.exit_status, 0) << judged.output << judged.errors;
    EXPECT_EQ(judged.output + judged.errors, "");
}

TEST_F(CtlStatus, BadUsageIsRefused)
{
    EXPECT_EQ(run_ctl({"status", "--json", "--openmetrics"}).exit_status, 2);
    EXPECT_EQ(run_ctl({"status", "--frobnicate"}).exit_status, 2);
}

} // namespace
