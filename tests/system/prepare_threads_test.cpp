// Preparations on several threads of one process at once.
#include "fault_image.h"

#include "cycle_count.h"
#include "ixfs_vmir.h"
#include "process_state.h"
#include "watchdog.h"

#include <gmock/gmock.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace
{

using testing::ElementsAreArray;

// What the thread that made it logs while it lives.
class ThreadLog
{
public:
    ThreadLog() { current_ = this; }
    ~ThreadLog() { current_ = nullptr; }
    ThreadLog(const ThreadLog&) = delete;
    ThreadLog& operator=(const ThreadLog&) = delete;

    static void callback(int severity, const char* function_tag, const char* message)
    {
        if (current_ != nullptr)
            current_->lines_.push_back(std::to_string(severity) + " " + function_tag + " " +
                                       message);
    }

    const std::vector<std::string>& lines() const { return lines_; }

private:
    static thread_local ThreadLog* current_; // null on the library's own threads
    std::vector<std::string> lines_;
};

thread_local ThreadLog* ThreadLog::current_ = nullptr;

// A preparation of an image of its own, and what came of it.
class Preparation
{
public:
    explicit Preparation(int number)
        : image("server" + std::to_string(number), first_backup_time + number)
    {
    }

    void run()
    {
        const ThreadLog log;
        const MountCreds creds{
            image.server.c_str(), 1, 0, 30, nullptr, "mount-secret", "unmount-secret",
            image.backup_id};
        std::vector<std::string> entries = image.disks;
        LogInfo log_info{nullptr, ThreadLog::callback};
        out_.clear();
        status_ = ixfs_prepare_vmir(creds, entries, &log_info, config_, out_, true);
        log_ = log.lines();
    }

    void expect_success() const
    {
        EXPECT_EQ(status_, EC_OK);
        EXPECT_EQ(config_, image.config);
        EXPECT_THAT(out_, ElementsAreArray(image.disks_in_view));
        image.expect_view();
        image.expect_unchanged();
    }

    std::size_t logged_lines() const { return log_.size(); }

    // Whether no line is about another preparation's image.
    bool logged_only_its_own() const
    {
        for (const std::string& line : log_) {
            const std::size_t server = line.find("server", line.find("/ixfs/"));
            if (line.find("/ixfs/server") != std::string::npos &&
                line.compare(server, image.server.size(), image.server) != 0)
                return false;
        }
        return true;
    }

private:
    static constexpr long first_backup_time = 1'700'000'000;

    FaultImage image;
    ec_status status_ = EC_SYSTEM_ERROR;
    std::string config_;
    std::vector<std::string> out_;
    std::vector<std::string> log_;
};

TEST(PrepareOnThreads, AllSucceedAndLogAsOneAlone)
{
    constexpr int threads = 4;
    const Watchdog watchdog(std::chrono::seconds(240));
    const NoLocksLeft no_locks_left;
    std::vector<std::unique_ptr<Preparation>> preparations;
    for (int i = 0; i < threads; ++i)
        preparations.push_back(std::make_unique<Preparation>(i));
    for (const auto& preparation : preparations) {
        preparation->run(); // makes the mount directories, of which later ones say the same
        preparation->expect_success();
    }
    preparations[0]->run();
    preparations[0]->expect_success();
    const std::size_t lines = preparations[0]->logged_lines();

    for (int round = 0; round < cycle_count(10); ++round) {
        std::vector<std::thread> running;
        for (const auto& preparation : preparations)
            running.emplace_back([&preparation] { preparation->run(); });
        for (std::thread& thread : running)
            thread.join();
        for (const auto& preparation : preparations) {
            preparation->expect_success();
            EXPECT_EQ(preparation->logged_lines(), lines);
            EXPECT_TRUE(preparation->logged_only_its_own());
        }
    }
}

} // namespace
