// A signal that comes while the helper's output is read: it ends nothing and takes nothing away,
// least of all half a line.
#include "mount_fixture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <fstream>
#include <future>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

constexpr int interruption = SIGUSR1;

// Waits until something has come about. Returns whether it did so within 30 seconds.
template <typename Condition>
bool comes(Condition condition)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::yield();
    }
    return true;
}

// A handler that does nothing but end the system call that a thread is in.
class InterruptingHandler
{
public:
    InterruptingHandler()
    {
        struct sigaction action {
        };
        action.sa_handler = [](int) {
        }; // without SA_RESTART
        EXPECT_EQ(sigaction(interruption, &action, &before_), 0);
    }
    ~InterruptingHandler() { sigaction(interruption, &before_, nullptr); }
    InterruptingHandler(const InterruptingHandler&) = delete;
    InterruptingHandler& operator=(const InterruptingHandler&) = delete;

private:
    struct sigaction before_ {
    };
};

// The thread that reads the helper's output, and the pipe that it reads from. Holds on_popen.
class Reader
{
public:
    // Waits until the thread has read all that was written so far, and waits for more.
    bool wait_for_more() const
    {
        return comes([this] { return pipe_ != -1 && unread() == 0 && is_in_read(); });
    }

    // Sends the thread a signal, and waits until that has arrived.
    bool interrupt() const
    {
        return pthread_kill(thread_, interruption) == 0 && comes([this] { return !is_pending(); });
    }

private:
    int unread() const
    {
        int bytes = -1;
        ioctl(pipe_, FIONREAD, &bytes);
        return bytes;
    }

    std::string task(const char* file) const
    {
        return "/proc/self/task/" + std::to_string(task_) + "/" + file;
    }

    // The number of the system call that the thread sleeps in comes first.
    bool is_in_read() const
    {
        long call = -1;
        return std::ifstream(task("syscall")) >> call && call == SYS_read;
    }

    bool is_pending() const
    {
        std::ifstream status(task("status"));
        for (std::string word; status >> word;) {
            std::uint64_t signals = 0;
            if (word == "SigPnd:" && status >> std::hex >> signals)
                return (signals >> (interruption - 1) & 1U) != 0;
        }
        return true;
    }

    pthread_t thread_{};
    std::atomic<pid_t> task_{0};
    std::atomic<int> pipe_{-1};
    decltype(interpose::on_popen)::Hook popen_ =
        interpose::on_popen([this](const char* command, const char* mode) -> std::optional<FILE*> {
            FILE* const pipe = popen(command, mode);
            thread_ = pthread_self();
            task_ = static_cast<pid_t>(syscall(SYS_gettid));
            pipe_ = fileno(pipe);
            return pipe;
        });
};

class InterruptedHelper : public MountTest
{
protected:
    InterruptedHelper()
    {
        const std::string path = dir / "gate";
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        gate = open(path.c_str(), O_RDWR | O_CLOEXEC);
        EXPECT_NE(gate, -1);
    }
    ~InterruptedHelper() override { close(gate); }

    // Lets the next run of the helper write the text, then wait to be let go, and then go on with
    // its answer.
    void helper_pauses_behind(const std::string& text)
    {
        helper.does("[ -e '" + dir / "paused" + "' ] || { printf '" + text + "'; : > '" +
                    dir / "paused" + "'; read go < '" + dir / "gate" + "'; }");
    }

    // Carries out a call, and interrupts it three times while the helper pauses.
    template <typename Call>
    auto interrupted(Call call)
    {
        const InterruptingHandler handler;
        const Reader reader;
        const auto interrupting = std::async(std::launch::async, [&] {
            EXPECT_TRUE(comes([this] { return dir.exists("paused"); }));
            for (int i = 0; i < 3; ++i) {
                EXPECT_TRUE(reader.wait_for_more());
                EXPECT_TRUE(reader.interrupt());
            }
            EXPECT_TRUE(reader.wait_for_more());
            EXPECT_EQ(write(gate, "go\n", 3), 3);
        });
        return call();
    }

    // The lines of a mount whose helper tells mount path and mount point.
    Lines lines_of_mount() const
    {
        const std::string command =
            R"("/usr/varnis/stowline/bin/ixfs" mount -server media1 -port 40100 -timeout 60  )"
            R"(-cred mount-secret /usr/varnis/var/ixfs/me...)";
        return lines_before_mount_command() +
               lines_of_run(mount_says, command, {"MNTPATH=/m/x", "MOUNTPOINT=" + image.path()}) +
               mount_says.info("MOUNTPOINT= MOUNTPOINT=" + image.path()) +
               mount_says.info("INF - response - EXIT_STATUS=0") +
               mount_says.info("INF - mount point: " + image.path()) +
               line_of_validation(image.path()) +
               mount_says.info("INF - mount point - " + image.path());
    }

    TempDir dir;
    int gate = -1;
};

TEST_F(InterruptedHelper, LineOfAMountThatASignalCutsInTwoIsOneLine)
{
    helper_pauses_behind(R"(MNTPATH=/m/x\nMOUNT)");
    helper.answers({{"POINT=" + image.path(), "EXIT_STATUS=0"}});
    EXPECT_STREQ(interrupted([this] { return mount(); }), image.path().c_str());
    EXPECT_EQ(log.lines_here(), lines_of_mount());
}

TEST_F(InterruptedHelper, LineOfAnUnmountThatASignalCutsInTwoIsOneLine)
{
    given_mount(mounts_image(), {{"TATUS=3"}});
    helper_pauses_behind(R"(unmounting\nEXIT_S)");
    EXPECT_EQ(interrupted([this] { return ixfs_unmount(handle.get()); }), EC_HELPER_FAILED);
    EXPECT_EQ(log.with_tag("ixfs_unmount()"),
              lines_before_unmount_command() +
                  lines_of_run(unmount_says, unmount_command(), {"unmounting", "EXIT_STATUS=3"}) +
                  unmount_says.error("ERR - command failed"));
    EXPECT_EQ(job_log.lines().back(), "JBD - INF - response - EXIT_STATUS=3\n");
}

TEST_F(InterruptedHelper, SignalBetweenTwoLinesTakesNothingAway)
{
    helper_pauses_behind(R"(MNTPATH=/m/x\n)");
    helper.answers({mounts_image()});
    EXPECT_STREQ(interrupted([this] { return mount(); }), image.path().c_str());
    EXPECT_EQ(log.lines_here(), lines_of_mount());
}

} // namespace
