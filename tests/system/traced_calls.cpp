#include "traced_calls.h"

#include "child_process.h"
#include "ixfs_lib_util/open_file.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

enum Outcome : int { killed, ran_to_its_end };

using SystemCall = std::uint64_t; // its number

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

    // Lets the process run to its next system call. Returns that, or nothing at the body's end.
    std::optional<SystemCall> goes_on() const
    {
        for (int signal = 0;;) {
            check(ptrace(PTRACE_SYSCALL, process_, nullptr, signal) == 0, "PTRACE_SYSCALL");
            const int stop = next_stop();
            if (stop == mark)
                return std::nullopt;
            signal = stop == system_call_stop ? 0 : stop;
            const std::optional<SystemCall> call = signal == 0 ? entered() : std::nullopt;
            if (call)
                return call;
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

    // The system call that it stopped before, if it did.
    std::optional<SystemCall> entered() const
    {
        __ptrace_syscall_info info{};
        check(ptrace(PTRACE_GET_SYSCALL_INFO, process_, sizeof(info), &info) > 0,
              "PTRACE_GET_SYSCALL_INFO");
        if (info.op != PTRACE_SYSCALL_INFO_ENTRY)
            return std::nullopt;
        return info.entry.nr;
    }

    pid_t process_;
};

// Ends a traced process, and waits for what it started, which has become this process's own.
void end(const Traced& process)
{
    process.kill();
    while (wait(nullptr) != -1)
        continue;
}

Outcome run_to_call(int number, const std::function<void()>& body)
{
    const Traced process(body);
    int calls = 0;
    while (calls < number && process.goes_on())
        ++calls;
    end(process);
    return calls == number ? killed : ran_to_its_end;
}

bool is_about_memory(SystemCall call)
{
    return call == SYS_brk || call == SYS_mmap || call == SYS_munmap || call == SYS_mremap ||
           call == SYS_mprotect || call == SYS_madvise;
}

int count_calls(const std::function<void()>& body)
{
    const Traced process(body);
    int calls = 0;
    while (const std::optional<SystemCall> call = process.goes_on())
        calls += is_about_memory(*call) ? 0 : 1;
    end(process);
    return calls;
}

// A process of its own traces, so that it can wait for all that it becomes the parent of. An
// exception ends it, or it would go on as a second test program. Returns its exit status.
int run_tracer(const std::function<int()>& trace)
{
    ChildProcess tracer(STDERR_FILENO, [&](ChildProcess::Parent&) noexcept {
        check(prctl(PR_SET_CHILD_SUBREAPER, 1) == 0, "prctl");
        return trace();
    });
    return tracer.wait();
}

} // namespace

bool killed_at_system_call(int call, const std::function<void()>& body)
{
    switch (run_tracer([&] { return run_to_call(call, body); })) {
    case killed:
        return true;
    case ran_to_its_end:
        return false;
    default:
        throw std::runtime_error("a process could not be traced to its end");
    }
}

int system_calls_made_by(const std::function<void()>& body)
{
    int ends[2]; // an exit status has no room for the number
    check(pipe2(ends, O_CLOEXEC) == 0, "pipe2");
    const OpenFile from_tracer(ends[0]);
    const OpenFile to_test(ends[1]);
    const auto tell = [&] {
        const int calls = count_calls(body);
        return write(to_test.descriptor(), &calls, sizeof(calls)) == sizeof(calls) ? 0 : 1;
    };
    int calls = 0;
    if (run_tracer(tell) != 0 ||
        read(from_tracer.descriptor(), &calls, sizeof(calls)) != sizeof(calls))
        throw std::runtime_error("the calls of a process could not be counted");
    return calls;
}
