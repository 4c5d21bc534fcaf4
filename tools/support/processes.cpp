#include "processes.h"

#include "log_text.h"
#include "proc_file.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <pwd.h>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <unistd.h>

namespace
{

// What a process's stat file tells.
struct Stat {
    std::string name;
    char state;
    pid_t parent;
    unsigned long flags;
    unsigned long long start; // ticks after the system's
};

std::optional<Stat> read_stat(pid_t pid)
{
    const std::optional<std::string> text = read_proc_file(proc_path(pid, "stat"));
    if (!text)
        return std::nullopt;
    // The name is in parentheses, and may hold some itself.
    const std::size_t begin = text->find('(');
    const std::size_t end = text->rfind(')');
    if (begin == std::string::npos || end == std::string::npos)
        return std::nullopt;
    Stat stat{text->substr(begin + 1, end - begin - 1), 0, 0, 0, 0};
    std::istringstream fields(text->substr(end + 1));
    std::string skipped;
    fields >> stat.state >> stat.parent;
    constexpr int before_flags = 4;
    for (int i = 0; i < before_flags; ++i)
        fields >> skipped;
    fields >> stat.flags;
    constexpr int before_start = 12;
    for (int i = 0; i < before_start; ++i)
        fields >> skipped;
    fields >> stat.start;
    if (!fields)
        return std::nullopt;
    return stat;
}

bool is_zombie(char state)
{
    return state == 'Z' || state == 'X';
}

std::chrono::seconds age_since(unsigned long long start)
{
    timespec now{};
    clock_gettime(CLOCK_BOOTTIME, &now);
    const auto ticks_per_second = static_cast<unsigned long long>(sysconf(_SC_CLK_TCK));
    const auto began = static_cast<std::time_t>(start / ticks_per_second);
    return std::chrono::seconds(now.tv_sec > began ? now.tv_sec - began : 0);
}

// The effective user, as the kernel checks it.
std::string user_of(pid_t pid)
{
    std::istringstream status(read_proc_file(proc_path(pid, "status")).value_or(""));
    uid_t real = 0;
    uid_t effective = 0;
    std::string line;
    while (std::getline(status, line) && line.compare(0, 4, "Uid:") != 0)
        continue;
    if (!(std::istringstream(line.substr(line.empty() ? 0 : 4)) >> real >> effective))
        return "unknown";
    passwd entry{};
    passwd* found = nullptr;
    char strings[4096];
    getpwuid_r(effective, &entry, strings, sizeof(strings), &found);
    return found != nullptr ? entry.pw_name : std::to_string(effective);
}

std::string command_of(pid_t pid, const std::string& name)
{
    std::string command;
    bool is_credential = false;
    for (const std::string& argument : arguments_of(pid)) {
        command.append(command.empty() ? "" : " ").append(is_credential ? "***" : argument);
        is_credential = argument == "-cred";
    }
    if (command.empty())
        command = "[" + name + "]";
    return escape_control_characters(mask_credential(command));
}

// Whether this process has the capability CAP_SYS_PTRACE, which a service's root may lack.
bool may_look_into_all()
{
    constexpr unsigned long long may_trace = 1ULL << 19U;
    const std::string name = "CapEff:";
    const std::string status = read_proc_file("/proc/self/status").value_or("");
    const std::size_t at = status.find(name);
    return at != std::string::npos &&
           (std::strtoull(status.c_str() + at + name.size(), nullptr, 16) & may_trace) != 0;
}

} // namespace

std::optional<Process> find_process(pid_t pid)
{
    const std::optional<Stat> stat = read_stat(pid);
    if (!stat || is_zombie(stat->state))
        return std::nullopt;
    return Process{pid,          stat->parent,          stat->state, command_of(pid, stat->name),
                   user_of(pid), age_since(stat->start)};
}

std::string describe(std::chrono::seconds duration)
{
    const auto seconds = duration.count();
    const auto in = [seconds](long unit) {
        return std::to_string(seconds / unit);
    };
    constexpr long minute = 60;
    constexpr long hour = 60 * minute;
    constexpr long day = 24 * hour;
    if (seconds < 2 * minute)
        return in(1) + " s";
    if (seconds < 2 * hour)
        return in(minute) + " min";
    if (seconds < 2 * day)
        return in(hour) + " h";
    return in(day) + " days";
}

std::string describe(const Process& process)
{
    constexpr std::size_t longest = 100;
    const std::string& all = process.command;
    const std::string command = all.size() > longest ? all.substr(0, longest - 3) + "..." : all;
    return "PID " + std::to_string(process.pid) + " (" + command + "), user " + process.user +
           ", running for " + describe(process.age);
}

std::vector<std::string> arguments_of(pid_t pid)
{
    std::vector<std::string> arguments;
    std::istringstream text(read_proc_file(proc_path(pid, "cmdline")).value_or(""));
    for (std::string argument; std::getline(text, argument, '\0');)
        arguments.push_back(argument);
    return arguments;
}

bool shares_namespace(pid_t pid, const std::string& kind)
{
    const std::optional<std::string> own = read_proc_link("/proc/self/ns/" + kind);
    return own && read_proc_link(proc_path(pid, "ns/" + kind)) == own;
}

void require_own_proc()
{
    if (read_proc_link("/proc/self") != std::to_string(getpid()))
        throw std::runtime_error(
            "/proc is missing or of another PID namespace: `mount -t proc proc "
            "/proc`");
}

std::vector<pid_t> processes_of_this_host()
{
    std::vector<pid_t> processes;
    for (const pid_t pid : numbers_in_proc("/proc")) {
        if (pid != getpid() && shares_namespace(pid, "ipc"))
            processes.push_back(pid);
    }
    return processes;
}

int hidden_processes()
{
    // What is hidden from such a root, as the init of a container's host, is no caller of ours.
    if (may_look_into_all())
        return 0;
    constexpr unsigned long kernel_thread = 0x00200000; // the kernel's PF_KTHREAD
    const std::vector<pid_t> seen = numbers_in_proc("/proc");
    constexpr pid_t init = 1; // there is always one, but the option "hidepid" of /proc can hide it
    int hidden = std::count(seen.begin(), seen.end(), init) == 0 ? 1 : 0;
    for (const pid_t pid : seen) {
        if (read_proc_link(proc_path(pid, "ns/ipc")) || (errno != EACCES && errno != EPERM))
            continue;
        const std::optional<Stat> stat = read_stat(pid);
        if (stat && !is_zombie(stat->state) && (stat->flags & kernel_thread) == 0)
            ++hidden;
    }
    return hidden;
}
