#include "child_process.h"

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <valgrind/valgrind.h>

namespace
{

void check(bool success, const char* call)
{
    if (!success)
        throw std::system_error(errno, std::generic_category(), call);
}

constexpr char signal_byte = '.';

bool send_signal(int line)
{
    return write(line, &signal_byte, 1) == 1;
}

bool receive_signal(int line)
{
    char byte = 0;
    return read(line, &byte, 1) == 1;
}

// noexcept: an exception that passed would run the parent's test on in the child.
[[noreturn]] void run_to_the_end(const ChildProcess::Body& body,
                                 ChildProcess::Parent& parent) noexcept
{
    _exit(body(parent));
}

} // namespace

void look_for_no_leaks()
{
    VALGRIND_CLO_CHANGE("--leak-check=no");
}

void ChildProcess::Parent::pause()
{
    if (!send_signal(line_) || !receive_signal(line_))
        _exit(1);
}

ChildProcess::ChildProcess(int errors, const Body& body)
{
    int lines[2];
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, lines) == 0, "socketpair");
    process_ = fork();
    check(process_ != -1, "fork");
    close(lines[process_ == 0 ? 0 : 1]);
    line_ = lines[process_ == 0 ? 1 : 0];
    if (process_ != 0)
        return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    look_for_no_leaks();
    dup2(errors, STDERR_FILENO);
    Parent parent(line_);
    run_to_the_end(body, parent);
}

ChildProcess::ChildProcess(ChildProcess&& other) noexcept
    : process_(std::exchange(other.process_, none)), line_(std::exchange(other.line_, -1))
{
}

ChildProcess::~ChildProcess()
{
    if (process_ != none) {
        kill();
        wait();
    }
    if (line_ != -1)
        close(line_);
}

void ChildProcess::wait_for_pause()
{
    if (!receive_signal(line_))
        throw std::runtime_error("a child process ended where it was to pause");
}

void ChildProcess::go_on()
{
    check(send_signal(line_), "send");
}

void ChildProcess::send(int signal)
{
    check(::kill(process_, signal) == 0, "kill");
}

void ChildProcess::kill()
{
    ::kill(process_, SIGKILL);
}

bool ChildProcess::has_ended() const
{
    siginfo_t end{};
    check(waitid(P_PID, static_cast<id_t>(process_), &end, WEXITED | WNOHANG | WNOWAIT) == 0,
          "waitid");
    return end.si_pid == process_;
}

int ChildProcess::wait()
{
    int status = 0;
    check(waitpid(std::exchange(process_, none), &status, 0) != -1, "waitpid");
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}
