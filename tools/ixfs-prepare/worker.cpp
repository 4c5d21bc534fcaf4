#include "worker.h"

#include "work.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace
{

void check(bool success, const char* call)
{
    if (!success)
        throw std::system_error(errno, std::generic_category(), call);
}

struct Pipe {
    Pipe()
    {
        int ends[2];
        check(pipe2(ends, O_CLOEXEC) == 0, "pipe2");
        reading = OpenDescriptor(ends[0]);
        writing = OpenDescriptor(ends[1]);
    }
    OpenDescriptor reading;
    OpenDescriptor writing;
};

void do_nothing(int) {}

// A handler and not SIG_IGN: the helper would inherit that. What the caller ignores stays ignored.
void survive(int signal)
{
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler == SIG_IGN)
        return;
    action = {};
    action.sa_handler = do_nothing;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
}

// Numbers in the child beside the standard ones.
constexpr int records_number = 3;
constexpr int caller_errors_number = 4;
constexpr int first_other_number = 5;

// Puts the child's descriptors in place and closes all others: those of the caller, which a helper
// that lives on would keep open, and the pipes of other workers. Returns whether that was possible.
bool arrange_descriptors(const Pipe& records, const Pipe& errors)
{
    // First out of the way of the numbers that they are to have.
    const int sources[] = {fcntl(records.writing.number(), F_DUPFD_CLOEXEC, first_other_number),
                           fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, first_other_number)};
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    if (sources[0] == -1 || sources[1] == -1 || null == -1)
        return false; // a record must not go where another descriptor of the caller leads
    dup2(null, STDIN_FILENO);
    dup2(null, STDOUT_FILENO);
    dup2(errors.writing.number(), STDERR_FILENO);
    dup3(sources[0], records_number, O_CLOEXEC);
    dup3(sources[1], caller_errors_number, O_CLOEXEC);
    closefrom(first_other_number);
    return true;
}

[[noreturn]] void become_worker(const Request& request, const Pipe& records, const Pipe& errors,
                                pid_t supervisor, const std::function<void()>& in_child) noexcept
{
    setsid();
    prctl(PR_SET_PDEATHSIG, SIGCONT); // the supervisor may be killed while this is stopped
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        survive(signal);
    in_child();
    if (arrange_descriptors(records, errors))
        work(request, {records_number, caller_errors_number, supervisor});
    _exit(0);
}

} // namespace

Worker::Worker(const Request& request, const std::function<void()>& in_child)
{
    start(request, in_child);
}

void Worker::start(const Request& request, const std::function<void()>& in_child)
{
    Pipe records;
    Pipe errors;
    const pid_t supervisor = getpid();
    pid_ = fork();
    check(pid_ != -1, "fork");
    if (pid_ == 0)
        become_worker(request, records, errors, supervisor, in_child);
    records_ = std::move(records.reading);
    errors_ = std::move(errors.reading);
    for (const int descriptor : {records_.number(), errors_.number()})
        fcntl(descriptor, F_SETFL, O_NONBLOCK);
}

bool Worker::stop()
{
    if (ended_ || ::kill(pid_, SIGSTOP) != 0)
        return false;
    // Left in its state: wait() is to find the end.
    siginfo_t state{};
    while (waitid(P_PID, static_cast<id_t>(pid_), &state, WSTOPPED | WEXITED | WNOWAIT) != 0) {
        if (errno != EINTR)
            return false;
    }
    return state.si_code == CLD_STOPPED;
}

void Worker::go_on()
{
    if (!ended_)
        ::kill(pid_, SIGCONT);
}

void Worker::kill()
{
    if (!ended_)
        ::kill(pid_, SIGKILL);
}

int Worker::wait()
{
    int status = 0;
    while (!ended_) {
        const pid_t found = waitpid(pid_, &status, 0);
        if (found == -1 && errno == EINTR)
            continue;
        ended_ = true; // or it cannot be waited for: the caller ignores SIGCHLD
        end_signal_ = found == pid_ && WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    }
    return end_signal_;
}
