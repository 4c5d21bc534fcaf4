// ixfsctl clean, on hosts with leftovers.
#include "ctl_test.h"
#include "processes.h"

#include <csignal>
#include <filesystem>
#include <fstream>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace fs = std::filesystem;
using nlohmann::json;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace
{

class CtlClean : public CtlTest
{
protected:
    ~CtlClean() override { clean(); }

    static ProgramResult clean() { return run_ctl({"clean", "--yes"}); }

    static void expect_sound_host() { EXPECT_THAT(finding_ids(status_of_host()), IsEmpty()); }

    // Whether a process waits in such a call.
    static bool is_in_chdir(const std::string& pid)
    {
        long call = -1;
        return std::ifstream("/proc/" + pid + "/syscall") >> call && call == SYS_chdir;
    }

    // As on a terminal, which shows the input, too.
    static ProgramResult clean_on_terminal(const std::string& input)
    {
        return run_program({"/usr/bin/script", "--quiet", "--return", "--command",
                            IXFSCTL_PROGRAM " clean", "/dev/null"},
                           {input});
    }
};

TEST_F(CtlClean, CleanHostStaysAsItIs)
{
    const ProgramResult result = clean();
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.output + result.errors, "");
    EXPECT_EQ(run_ctl({"clean", "--dry-run"}).output, "Nothing to clean.\n");
    EXPECT_EQ(count_semaphore_sets(), 0U);
}

TEST_F(CtlClean, AllLayersAndNestedMountsAreTakenOff)
{
    mount_on("site", "lower");
    mount_on("site", "upper");
    mount_on("site/media1", "inner");
    mount_on("other");
    const ProgramResult result = clean();
    EXPECT_EQ(result.exit_status, 0);
    const std::string base = directory_of("");
    EXPECT_EQ(result.output, "take off " + base + "other (tmpfs from source)\n" + //
                                 "take off " + base + "site/media1 (tmpfs from inner)\n" +
                                 "take off " + base + "site (tmpfs from upper)\n" + //
                                 "take off " + base + "site (tmpfs from lower)\n" +
                                 "remove the directory " + base + "other\n" +
                                 "remove the directory " + base + "site\n");
    EXPECT_TRUE(fs::is_empty(base));
    expect_sound_host();
}

TEST_F(CtlClean, DryRunSaysAllAndDoesNothing)
{
    mount_on("media1", "lower");
    mount_on("media1", "upper");
    ChildProcess caller = start_caller_in_helper();
    caller.kill();
    caller.wait();
    const json before = status_of_host();
    const ProgramResult result = run_ctl({"clean", "--dry-run"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_THAT(result.output, StartsWith("would end PID "));
    EXPECT_THAT(result.output,
                HasSubstr("would take off /usr/varnis/var/ixfs/media1 (tmpfs from upper)\n"
                          "would take off /usr/varnis/var/ixfs/media1 (tmpfs from lower)\n"
                          "would remove the directory /usr/varnis/var/ixfs/media1\n"
                          "would remove semaphore set "));
    EXPECT_EQ(finding_ids(status_of_host()), finding_ids(before));
    EXPECT_EQ(layers_of("media1"), 2);
}

TEST_F(CtlClean, NobodyToAskIsBadUsage)
{
    mount_on("media1");
    const ProgramResult result = run_ctl({"clean"});
    EXPECT_EQ(result.exit_status, 2);
    EXPECT_THAT(result.errors, HasSubstr("--yes"));
    EXPECT_EQ(layers_of("media1"), 1);
}

TEST_F(CtlClean, TerminalIsAskedOnce)
{
    mount_on("media1");
    const ProgramResult refused = clean_on_terminal("n\n");
    EXPECT_THAT(refused.output, AllOf(HasSubstr("would take off"), HasSubstr("Nothing was done.")));
    EXPECT_EQ(refused.exit_status, 1);
    EXPECT_EQ(layers_of("media1"), 1);

    const ProgramResult agreed = clean_on_terminal("y\n");
    EXPECT_EQ(agreed.exit_status, 0);
    EXPECT_THAT(agreed.output, HasSubstr("Go on? [y/N] take off"));
    EXPECT_EQ(layers_of("media1"), 0);
}

TEST_F(CtlClean, MountInUseStaysAndItsUserIsNamed)
{
    mount_on("media1");
    ChildProcess user = start_caller([] { return chdir("/usr/varnis/var/ixfs/media1"); });
    user.wait_for_pause();
    const ProgramResult result = clean();
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.output,
                StartsWith("left /usr/varnis/var/ixfs/media1: it is in use by PID "));
    EXPECT_EQ(layers_of("media1"), 1);
    user.kill();
    user.wait();
}

TEST_F(CtlClean, MountWithAnOpenFileStays)
{
    mount_on("media1");
    std::ofstream file(directory_of("media1") + "/file");
    file << "data" << std::flush;
    EXPECT_EQ(clean().exit_status, 1);
    EXPECT_EQ(layers_of("media1"), 1);
}

TEST_F(CtlClean, LivingCallersMountStays)
{
    mount_on("media1");
    make_directory("media2");
    ChildProcess caller = start_caller([] { return lock_view_in_caller(); });
    caller.wait_for_pause();
    const ProgramResult result = clean();
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.output, HasSubstr("which has libixfs loaded"));
    EXPECT_EQ(layers_of("media1"), 1);
    EXPECT_TRUE(exists(directory_of("media2"))) << "it may be about to mount there";
    EXPECT_EQ(count_semaphore_sets(), 1U);
    caller.kill();
    caller.wait();
}

TEST_F(CtlClean, HungMountIsTakenOff)
{
    try {
        const HungMount hung(make_directory("media1"));
        EXPECT_EQ(clean().exit_status, 0);
        EXPECT_EQ(layers_of("media1"), 0);
        expect_sound_host();
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << error.what();
    }
}

TEST_F(CtlClean, HungMountInWhichAProcessHangsIsTakenOff)
{
    try {
        const HungMount hung(make_directory("media1"));
        ChildProcess hanging(STDERR_FILENO, [this](ChildProcess::Parent&) {
            folder.write("pid", std::to_string(getpid()));
            return chdir("/usr/varnis/var/ixfs/media1/folder") == 0 ? 1 : 0;
        });
        look_until([this] { return folder.exists("pid") && is_in_chdir(folder.read("pid")); });
        EXPECT_EQ(clean().exit_status, 0);
        EXPECT_EQ(layers_of("media1"), 0);
        EXPECT_EQ(hanging.wait(), 0) << "its call fails";
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << error.what();
    }
}

TEST_F(CtlClean, NoFileIsDeleted)
{
    fs::create_symlink(folder.path(), directory_of("link"));
    folder.write("file", "data");
    fs::copy(folder / "file", make_directory("media1"));
    mount_on("media2");
    umount(directory_of("media2").c_str());
    make_directory("media2/empty");
    mount_on("media3");
    fs::copy(folder / "file", directory_of("media3"));
    const ProgramResult result = clean();
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.output, HasSubstr("left /usr/varnis/var/ixfs/link: it is not a directory"));
    EXPECT_THAT(result.output, HasSubstr("left /usr/varnis/var/ixfs/media1: it holds files"));
    EXPECT_TRUE(fs::is_symlink(directory_of("link")));
    EXPECT_EQ(folder.read("file"), "data");
    EXPECT_TRUE(exists(directory_of("media1") + "/file"));
    EXPECT_FALSE(exists(directory_of("media2")));
    EXPECT_FALSE(exists(directory_of("media3")));
}

TEST_F(CtlClean, HelperOfAKilledCallerIsEndedWithAllThatItStarted)
{
    ChildProcess caller = start_caller_in_helper();
    caller.kill();
    caller.wait();
    const json before = status_of_host();
    const ProgramResult result = clean();
    EXPECT_EQ(result.exit_status, 0);
    for (const json& helper : before.at("helper_processes")) {
        const pid_t pid = helper.at("pid");
        EXPECT_THAT(result.output, HasSubstr("end PID " + std::to_string(pid) + " "));
        EXPECT_FALSE(find_process(pid));
    }
    EXPECT_THAT(result.output, Not(HasSubstr("s3cret")));
    expect_sound_host();
    EXPECT_EQ(count_semaphore_sets(), 0U);
}

// It lives on, and would mount.
TEST_F(CtlClean, HelperWhoseShellWasKilledIsEnded)
{
    ChildProcess caller = start_caller_in_helper();
    caller.kill();
    caller.wait();
    const json before = status_of_host();
    for (const json& helper : before.at("helper_processes")) {
        const std::string command = helper.at("command");
        if (command.find(" -c ") != std::string::npos)
            kill(helper.at("pid").get<pid_t>(), SIGKILL);
    }
    look_until([] { return status_of_host().at("helper_processes").size() == 1; });
    EXPECT_THAT(clean().output, HasSubstr("end PID "));
    EXPECT_THAT(status_of_host().at("helper_processes"), IsEmpty());
    expect_sound_host();
}

TEST_F(CtlClean, HelperThatIsDeafToTermIsKilled)
{
    ChildProcess caller = start_caller_in_helper("trap '' TERM");
    caller.kill();
    caller.wait();
    EXPECT_EQ(clean().exit_status, 0);
    expect_sound_host();
}

TEST_F(CtlClean, HelperWithALivingCallerGoesOn)
{
    ChildProcess caller = start_caller_in_helper();
    EXPECT_THAT(clean().output, Not(HasSubstr("end PID")));
    let_helper_go();
    caller.wait_for_pause();
    EXPECT_EQ(layers_of("media1"), 1);
    caller.kill();
    caller.wait();
}

TEST_F(CtlClean, OtherServersAndLocksAreLeftAlone)
{
    mount_on("media2");
    mount_on("media10");
    ChildProcess caller = start_caller_in_helper();
    caller.kill();
    caller.wait();
    const ProgramResult other = run_ctl({"clean", "--yes", "--server", "media2"});
    EXPECT_EQ(other.exit_status, 0);
    EXPECT_EQ(other.output, "take off /usr/varnis/var/ixfs/media2 (tmpfs from source)\n"
                            "remove the directory /usr/varnis/var/ixfs/media2\n");

    const ProgramResult own = run_ctl({"clean", "--yes", "--server", "media1"});
    EXPECT_EQ(own.exit_status, 0);
    EXPECT_THAT(own.output, HasSubstr("end PID "));
    EXPECT_EQ(layers_of("media10"), 1);
    EXPECT_THAT(finding_ids(status_of_host()), ElementsAre("stale_mount", "unused_mount_mutex"));
}

TEST_F(CtlClean, ServersWithLongerNamesAreLeftAlone)
{
    for (const char* const server : {"a", "ab", "a b", "c/d"})
        mount_on(server);
    mount_on("a/b");
    const ProgramResult nested = run_ctl({"clean", "--yes", "--server", "a"});
    EXPECT_EQ(nested.exit_status, 1);
    EXPECT_EQ(nested.output, "left /usr/varnis/var/ixfs/a: something is mounted on it: "
                             "/usr/varnis/var/ixfs/a/b\n");
    EXPECT_EQ(run_ctl({"clean", "--yes", "--server", "c"}).output, "");
    umount(directory_of("a/b").c_str());
    EXPECT_EQ(run_ctl({"clean", "--yes", "--server", "a"}).output,
              "take off /usr/varnis/var/ixfs/a (tmpfs from source)\n"
              "remove the directory /usr/varnis/var/ixfs/a\n");
    for (const char* const server : {"ab", "a b", "c/d"})
        EXPECT_EQ(layers_of(server == std::string("a b") ? "a\\040b" : server), 1) << server;
}

// A folder above the mount directories may be a link to a larger disk.
TEST_F(CtlClean, MountBelowALinkedMountBaseIsTakenOff)
{
    const std::string base = "/usr/varnis/var/ixfs";
    fs::remove(base);
    fs::create_directory("/usr/varnis/disk");
    fs::create_symlink("/usr/varnis/disk", base);
    mount_on("media1");
    EXPECT_THAT(finding_ids(status_of_host()), ElementsAre("stale_mount"));
    EXPECT_EQ(clean().exit_status, 0);
    EXPECT_TRUE(fs::is_empty("/usr/varnis/disk"));
    EXPECT_TRUE(fs::is_symlink(base));
    fs::remove(base);
    fs::remove_all("/usr/varnis/disk");
}

// It would go with the directory.
TEST_F(CtlClean, MountOfAnotherMountNamespaceStays)
{
    const std::string directory = make_directory("media1");
    ChildProcess other = start_caller([&] {
        if (unshare(CLONE_NEWNS) == 0)
            mount_on("media1");
        return 0;
    });
    other.wait_for_pause();
    const ProgramResult result = clean();
    EXPECT_EQ(result.exit_status, 1);
    EXPECT_THAT(result.output, HasSubstr("in the mount namespace of PID "));
    EXPECT_TRUE(exists(directory));
    other.kill();
    other.wait();
}

// To let calls fail would hit the other one, too.
TEST_F(CtlClean, HungMountInWhichAnotherNamespacesProcessWorksIsNotForced)
{
    try {
        const HungMount hung(make_directory("media1"));
        ChildProcess other = start_caller([] {
            return unshare(CLONE_NEWNS) == 0 ? open("/usr/varnis/var/ixfs/media1", O_PATH) : -1;
        });
        other.wait_for_pause();
        ChildProcess hanging(STDERR_FILENO, [this](ChildProcess::Parent&) {
            folder.write("pid", std::to_string(getpid()));
            return chdir("/usr/varnis/var/ixfs/media1/folder") == 0 ? 1 : 0;
        });
        look_until([this] { return folder.exists("pid") && is_in_chdir(folder.read("pid")); });
        EXPECT_EQ(clean().exit_status, 1);
        EXPECT_EQ(layers_of("media1"), 1);
        EXPECT_TRUE(is_in_chdir(folder.read("pid")));
        other.kill();
        other.wait();
        EXPECT_EQ(clean().exit_status, 0);
        EXPECT_EQ(hanging.wait(), 0);
    } catch (const std::runtime_error& error) {
        GTEST_SKIP() << error.what();
    }
}

TEST_F(CtlClean, ServerThatLeadsAstrayIsRefused)
{
    for (const char* const server : {"", "..", "../ixfs-loopback", "a/../..", "/a", "."})
        EXPECT_EQ(run_ctl({"clean", "--yes", "--server", server}).exit_status, 2) << server;
}

} // namespace
