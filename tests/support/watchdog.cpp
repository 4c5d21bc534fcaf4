#include "watchdog.h"

#include "interpose.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <system_error>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

// Makes only calls that are safe in the child of a process with threads.
[[noreturn]] void watch(pid_t watched, unsigned int seconds, const std::string& message)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    while (seconds > 0 && getppid() == watched)
        seconds = sleep(seconds);
    if (getppid() == watched) {
        [[maybe_unused]] const auto written = write(STDERR_FILENO, message.data(), message.size());
        kill(watched, SIGKILL);
    }
    _exit(0);
}

std::string test_name()
{
    const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
    return test == nullptr ? "" : std::string(test->test_suite_name()) + "." + test->name();
}

} // namespace

Watchdog::Watchdog(std::chrono::seconds limit, const std::string& doing)
{
    const std::string message = "watchdog: " + test_name() + " is not done after " +
                                std::to_string(limit.count()) + " s " + doing + "\n";
    const pid_t watched = getpid();
    process_ = fork();
    if (process_ == -1)
        throw std::system_error(errno, std::generic_category(), "fork");
    if (process_ == 0)
        watch(watched, static_cast<unsigned int>(limit.count()), message);
}

Watchdog::~Watchdog()
{
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
}

void look_until(const std::function<bool()>& condition)
{
    while (!condition()) {
        const interpose::RealCalls of_the_test;
        usleep(1000);
    }
}
