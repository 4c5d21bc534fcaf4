// Preparations that are killed on their way, and what the next one makes of that.
#include "child_process.h"
#include "loopback_test.h"
#include "temp_dir.h"
#include "traced_calls.h"
#include "watchdog.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include <sys/mount.h>
#include <sys/stat.h>

namespace fs = std::filesystem;

using testing::IsEmpty;

namespace
{

// What makes a file the one that it was, and changes when it is written.
std::string identity_of(const std::string& file)
{
    struct stat status {
    };
    if (lstat(file.c_str(), &status) != 0)
        throw std::system_error(errno, std::generic_category(), file);
    return "inode " + std::to_string(status.st_ino) + ", mode " + std::to_string(status.st_mode) +
           ", " + std::to_string(status.st_size) + " bytes, written " +
           std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec);
}

// A descriptor's text, but for what is new in each copy.
std::string text_without_uuid(const std::string& descriptor)
{
    const std::string key = "ddb.uuid = \"";
    constexpr std::size_t uuid_length = 47;
    std::string text = bytes_of(descriptor);
    const std::size_t begin = text.find(key);
    if (begin != std::string::npos)
        text.erase(begin + key.size(), uuid_length);
    return text;
}

class CrashTest : public LoopbackTest
{
protected:
    // What preparations that went alike have in common: a description of all that the server
    // offers, and what the call returned by "".
    using Outcome = TreeDescription;

    // Prepares the image in the calling process, and leaves in a file what the call returned.
    void prepare() const;

    // Prepares it in a process of its own, which must not hang.
    Outcome prepare_anew(const std::string& when) const;

    // Returns whether a preparation was killed at that system call; if not, it ran to its end.
    bool kill_preparation_at(int call) const;

    Outcome outcome() const;

    // Makes the server as bare as it was, also of mounts that nobody will unmount any more.
    void take_back() const;

    const std::string image = server.root + "/" + server.image;
    const std::string view = image + "/_vmir";

private:
    std::string description_of(const fs::directory_entry& entry) const;

    TempDir results_;
};

void CrashTest::prepare() const
{
    std::vector<std::string> disks = server.disks;
    std::string config;
    std::vector<std::string> out;
    const ec_status status = ixfs_prepare_vmir(creds_of(server), disks, nullptr, config, out, true);

    std::string result = "status " + std::to_string(status) + "\n";
    for (const std::string& path : out)
        result += path + "\n";
    results_.write("result", result + config);
}

CrashTest::Outcome CrashTest::prepare_anew(const std::string& when) const
{
    const Watchdog watchdog(std::chrono::seconds(60), "with a preparation " + when);
    ChildProcess process(STDERR_FILENO, [this](ChildProcess::Parent&) {
        prepare();
        return 0;
    });
    EXPECT_EQ(process.wait(), 0) << when;
    return outcome();
}

bool CrashTest::kill_preparation_at(int call) const
{
    const Watchdog watchdog(std::chrono::seconds(60), "with the preparation to be killed");
    return killed_at_system_call(call, [this] { prepare(); });
}

CrashTest::Outcome CrashTest::outcome() const
{
    Outcome outcome = describe_tree(
        server.root, [this](const fs::directory_entry& entry) { return description_of(entry); });
    outcome[""] = results_.read("result");
    return outcome;
}

std::string CrashTest::description_of(const fs::directory_entry& entry) const
{
    const fs::path& path = entry.path();
    if (entry.is_directory())
        return "folder, mode " + std::to_string(static_cast<int>(entry.status().permissions()));
    const bool is_link = path.native().find("-flat.vmdk") != std::string::npos;
    return path.parent_path() == view && !is_link ? text_without_uuid(path) : identity_of(path);
}

void CrashTest::take_back() const
{
    while (server.mounts() > 0 && umount2(server.mount_point.c_str(), MNT_DETACH) == 0)
        continue;
    fs::remove(server.mount_point);
    fs::remove_all(view);
    fs::remove(results_ / "result");
}

// The mount of a killed process stays in place, below that of the next.
TEST_F(CrashTest, PreparationKilledAtAnySystemCallHasNoEffectOnTheNext)
{
    const Outcome undisturbed = prepare_anew("undisturbed");
    EXPECT_TRUE(fs::equivalent(image + "/vm1/disk.vmdk", view + "/disk-flat.vmdk"));
    EXPECT_TRUE(fs::equivalent(image + "/vm1_1/disk.vmdk", view + "/disk(1)-flat.vmdk"));
    EXPECT_TRUE(fs::equivalent(image + "/vm1/data-000001.vmdk", view + "/data-flat.vmdk"));
    EXPECT_EQ(undisturbed.at("").find("status 0\n"), 0U);
    take_back();

    int call = 1;
    int mounts_left = 0;
    int locks_left = 0;
    for (; kill_preparation_at(call); ++call) {
        const std::string when = "after a kill at system call " + std::to_string(call);
        const int mounts = server.mounts();
        mounts_left += mounts;
        locks_left += !semaphore_sets().empty();
        ASSERT_EQ(prepare_anew(when), undisturbed) << when;
        ASSERT_EQ(server.mounts(), mounts) << when;
        ASSERT_THAT(semaphore_sets(), IsEmpty()) << when;
        take_back();
    }
    EXPECT_EQ(outcome(), undisturbed) << "of the one that ran to its end, traced";
    take_back();
    EXPECT_THAT(content.changes(), IsEmpty()) << "to the byte";
    EXPECT_GE(call, 100);
    std::printf("killed at each of %d system calls: %d left a mount, %d a lock\n", call - 1,
                mounts_left, locks_left);
}

} // namespace
