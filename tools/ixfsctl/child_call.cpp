#include "child_call.h"

#include "wait_until.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace
{

[[noreturn]] void run(const std::function<int()>& call, int answer) noexcept
{
    const int nothing = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        dup2(nothing, descriptor);
    constexpr int kept = STDERR_FILENO + 1;
    dup2(answer, kept);
    close_range(kept + 1, ~0U, 0); // what this process's caller left open, such as a lock of a job
    const int result = call();
    _exit(write(kept, &result, sizeof(result)) == sizeof(result) ? 0 : 1);
}

void check(bool success, const char* call)
{
    if (!success)
        throw std::system_error(errno, std::generic_category(), call);
}

} // namespace

ChildCall::Ends ChildCall::make_pipe()
{
    int ends[2];
    check(pipe2(ends, O_CLOEXEC) == 0, "pipe2");
    return {OpenDescriptor(ends[0]), OpenDescriptor(ends[1])};
}

ChildCall::ChildCall(const std::function<int()>& call) : ChildCall(call, make_pipe()) {}

ChildCall::ChildCall(const std::function<int()>& call, Ends ends)
    : answer_(std::move(ends.first)), child_(fork())
{
    if (child_ == 0)
        run(call, ends.second.number());
    check(child_ != -1, "fork");
}

ChildCall::~ChildCall()
{
    if (!answer_.is_open())
        return; // moved from
    kill(child_, SIGKILL);
    // One that does not hang is gone in no time, and is no zombie then: not every init reaps.
    const OpenDescriptor end(static_cast<int>(syscall(SYS_pidfd_open, child_, 0)));
    is_ready_by(end.number(), Clock::now() + std::chrono::milliseconds(100));
    waitpid(child_, nullptr, WNOHANG);
}

std::optional<int> ChildCall::result_by(Clock::time_point end) const
{
    int result = 0;
    if (!is_ready_by(answer_.number(), end) ||
        read(answer_.number(), &result, sizeof(result)) != sizeof(result))
        return std::nullopt;
    return result;
}
