// Calls that hang, callers that come at once, and how a mount ends.
#include "faultfs_fixture.h"

#include <atomic>
#include <csignal>
#include <future>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace faultfs
{

namespace
{

class FaultfsHangTest : public FaultfsTest
{
protected:
    // A stat in a thread of its own; the result is its error number.
    std::future<int> begin_stat(const std::string& name)
    {
        return std::async(std::launch::async, [path = mounted(name)] {
            struct stat attributes;
            return error_of(::stat(path.c_str(), &attributes));
        });
    }

    static bool ended(const std::future<int>& call)
    {
        return call.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
    }
};

TEST_F(FaultfsHangTest, ACallHangsUntilItsRuleIsLiftedAndOthersGoOn)
{
    const Fault hung = fs().add("getattr hang times=1 /backups");
    std::future<int> call = begin_stat("backups");
    hung.wait_until_fired();
    EXPECT_EQ(::access(mounted("backups").c_str(), R_OK), 0);
    EXPECT_EQ(::mkdir(mounted("backups/new").c_str(), 0700), 0);
    EXPECT_FALSE(ended(call));
    hung.lift();
    EXPECT_EQ(call.get(), 0);
    EXPECT_EQ(hung.count().fired, 1U);
}

TEST_F(FaultfsHangTest, ACallLetGoMeetsTheRulesAddedSince)
{
    const Fault hung = fs().add("lookup hang /backups");
    std::future<int> call = begin_stat("backups");
    hung.wait_until_fired();
    const Fault dead = fs().add("any ENOTCONN *");
    hung.lift();
    EXPECT_EQ(call.get(), ENOTCONN);
}

TEST_F(FaultfsHangTest, AProcessThatHangsCanBeKilled)
{
    const Fault hung = fs().add("lookup hang /backups");
    const std::string path = mounted("backups");
    const pid_t child = ::fork();
    ASSERT_NE(child, -1);
    if (child == 0)
        ::_exit(::access(path.c_str(), R_OK));
    hung.wait_until_fired();
    ASSERT_EQ(::kill(child, SIGKILL), 0);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
}

TEST_F(FaultfsHangTest, AForcedUnmountFailsTheCallThatHangs)
{
    const Fault hung = fs().add("getattr hang /backups");
    std::future<int> call = begin_stat("backups");
    hung.wait_until_fired();
    ::umount2(fs().path().c_str(), MNT_FORCE); // may find the mount busy, and is still felt
    EXPECT_EQ(call.get(), ECONNABORTED);
    EXPECT_EQ(hung.count().fired, 1U) << "counters outlive the mount";
}

TEST_F(FaultfsHangTest, TheEndOfTheMountFailsTheCallThatHangs)
{
    const Fault hung = fs().add("getattr hang /backups");
    std::future<int> call = begin_stat("backups");
    hung.wait_until_fired();
    EXPECT_EQ(fs().end(), 0);
    EXPECT_EQ(call.get(), ENOTCONN);
    EXPECT_TRUE(std::filesystem::is_empty(fs().path())) << "unmounted";
}

TEST_F(FaultfsHangTest, TheMountEndsWhileFilesAreOpen)
{
    dir.write("source/file", "data");
    const UniqueFd file(::open(mounted("file").c_str(), O_RDONLY));
    const UniqueFd folder(::open(mounted("backups").c_str(), O_RDONLY | O_DIRECTORY));
    EXPECT_EQ(fs().end(), 0);
    EXPECT_TRUE(std::filesystem::is_empty(fs().path())) << "unmounted";
    char byte = 0;
    EXPECT_EQ(error_of(static_cast<int>(::read(file.get(), &byte, 1))), ENOTCONN);
}

// Makes 2,000 calls from eight threads; returns how many timed out.
int time_outs_among_2000(const std::filesystem::path& path)
{
    std::atomic<int> timed_out{0};
    std::vector<std::thread> callers;
    callers.reserve(8);
    for (int i = 0; i < 8; ++i)
        callers.emplace_back([&] {
            for (int call = 0; call < 250; ++call)
                if (error_of(::access(path.c_str(), R_OK)) == ETIME)
                    ++timed_out;
        });
    for (std::thread& caller : callers)
        caller.join();
    return timed_out;
}

TEST_F(FaultfsHangTest, NoCallOfManyThreadsIsLost)
{
    const Fault slow = fs().add("access ETIME times=1000 /backups");
    EXPECT_EQ(time_outs_among_2000(mounted("backups")), 1000);
    EXPECT_EQ(slow.count().fired, 1000U);
    EXPECT_EQ(slow.count().seen, 2000U);
}

TEST_F(FaultfsHangTest, EachFailedLookupOfManyThreadsFailsOneSystemCall)
{
    const Fault slow = fs().add("lookup ETIME times=1000 /backups");
    EXPECT_EQ(time_outs_among_2000(mounted("backups")), 1000);
    EXPECT_EQ(slow.count().fired, 1000U);
}

} // namespace

} // namespace faultfs
