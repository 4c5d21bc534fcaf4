#include "process_end.h"

#include "open_descriptor.h"
#include "wait_until.h"

#include <chrono>
#include <csignal>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

namespace
{

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds
    patience_with_process(2); // with a process that was asked, and with one killed

// A process that stays the same one: its number may be given to another.
class HeldProcess
{
public:
    explicit HeldProcess(Process process)
        : process_(std::move(process)),
          descriptor_(static_cast<int>(syscall(SYS_pidfd_open, process_.pid, 0)))
    {
    }

    const Process& process() const { return process_; }
    bool exists() const { return descriptor_.is_open(); }

    void send(int signal) const
    {
        syscall(SYS_pidfd_send_signal, descriptor_.number(), signal, nullptr, 0);
    }

    bool has_ended_by(Clock::time_point end) const
    {
        return is_ready_by(descriptor_.number(), end);
    }

private:
    Process process_;
    OpenDescriptor descriptor_;
};

std::vector<HeldProcess> still_running(std::vector<HeldProcess> processes)
{
    const Clock::time_point end = Clock::now() + patience_with_process;
    std::vector<HeldProcess> left;
    for (HeldProcess& process : processes) {
        if (!process.has_ended_by(end))
            left.push_back(std::move(process));
    }
    return left;
}

} // namespace

std::vector<Process> end_processes(const std::vector<Process>& processes,
                                   const std::function<bool(const Process&)>& is_wanted)
{
    std::vector<HeldProcess> held;
    for (const Process& process : processes) {
        HeldProcess candidate(process);
        if (candidate.exists() && is_wanted(process))
            held.push_back(std::move(candidate));
    }
    for (const HeldProcess& process : held) {
        process.send(SIGTERM);
        process.send(SIGCONT); // a stopped one would not notice
    }
    held = still_running(std::move(held));
    for (const HeldProcess& process : held)
        process.send(SIGKILL);
    std::vector<Process> left;
    for (const HeldProcess& process : still_running(std::move(held)))
        left.push_back(process.process());
    return left;
}
