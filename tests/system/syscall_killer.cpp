#include "syscall_killer.h"

#include "child_process.h"

#include <cerrno>
#include <csignal>
#include <stdexcept>
#include <system_error>

#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

enum Outcome : int { killed, ran_to_its_end };

constexpr int mark = SIGSTOP; // by which the process tells begin and end of the body
constexpr int system_call_stop = SIGTRAP | 0x80; // told from true traps by PTRACE_O_TRACESYSGOOD

void check(bool success, const char* call)
{
    if (!success)
        throw std::system_error(errno, std::generic_category(), call);
}

class Traced
{
public:
    explicit Traced(const std::function<void()>& body) : process_(fork())
    {
        check(process_ != -1, "fork");
        if (process_ == 0)
            run(body);
        if (next_stop() != mark)
            throw std::runtime_error("a process to be traced ended before it began");
        check(ptrace(PTRACE_SETOPTIONS, process_, nullptr,
                     PTRACE_O_EXITKILL | PTRACE_O_TRACESYSGOOD) == 0,
              "PTRACE_SETOPTIONS");
    }

    // Returns whether the process came to the call.
    bool goes_on_to_call(int number) const
    {
        int calls = 0;
        for (int signal = 0;;) {
            check(ptrace(PTRACE_SYSCALL, process_, nullptr, signal) == 0, "PTRACE_SYSCALL");
            const int stop = next_stop();
            if (stop == mark)
                return false;
            signal = stop == system_call_stop ? 0 : stop;
            if (stop == system_call_stop && is_entry() && ++calls == number)
                return true;
        }
    }

    // Returns once nothing of the process is left.
    void kill() const
    {
        check(::kill(process_, SIGKILL) == 0, "kill");
        int status = 0;
        check(waitpid(process_, &status, 0) == process_, "waitpid");
    }

private:
    [[noreturn]] static void run(const std::function<void()>& body) noexcept
    {
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
        raise(mark);
        body();
        raise(mark);
        _exit(0);
    }

    // Waits until the process stops for a signal or a system call. Returns that signal.
    int next_stop() const
    {
        int status = 0;
        check(waitpid(process_, &status, 0) == process_, "waitpid");
        if (!WIFSTOPPED(status))
            throw std::runtime_error("a traced process ended by itself");
        return WSTOPSIG(status);
    }

    bool is_entry() const
    {
        __ptrace_syscall_info info{};
        check(ptrace(PTRACE_GET_SYSCALL_INFO, process_, sizeof(info), &info) > 0,
              "PTRACE_GET_SYSCALL_INFO");
        return info.op == PTRACE_SYSCALL_INFO_ENTRY;
    }

    pid_t process_;
};

Outcome run_to_call(int call, const std::function<void()>& body)
{
    check(prctl(PR_SET_CHILD_SUBREAPER, 1) == 0, "prctl");
    const Traced process(body);
    const bool came_to_call = process.goes_on_to_call(call);
    process.kill();
    while (wait(nullptr) != -1) // what it started has become this process's own
        continue;
    return came_to_call ? killed : ran_to_its_end;
}

} // namespace

// A process of its own traces, so that it can wait for all that it becomes the parent of. An
// exception ends it, or it would go on as a second test program.
bool killed_at_system_call(int call, const std::function<void()>& body)
{
    ChildProcess tracer(STDERR_FILENO,
                        [&](ChildProcess::Parent&) noexcept { return run_to_call(call, body); });
    switch (tracer.wait()) {
    case killed:
        return true;
    case ran_to_its_end:
        return false;
    default:
        throw std::runtime_error("a process could not be traced to its end");
    }
}
