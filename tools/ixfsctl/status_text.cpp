#include "log_text.h"
#include "product.h"
#include "status_report.h"

#include <cstddef>
#include <ctime>

namespace
{

constexpr const char* indent = "\n  ";

std::string counted(std::size_t count, const std::string& noun, const std::string& plural_ending)
{
    return std::to_string(count) + " " + noun + (count == 1 ? "" : plural_ending);
}

std::string local_time(std::time_t time)
{
    std::tm parts{};
    char text[sizeof("2026-01-31 12:00:00 +0000")] = "";
    if (localtime_r(&time, &parts) != nullptr)
        std::strftime(text, sizeof(text), "%F %T %z", &parts);
    return text;
}

std::string helper_line(const HostState& host)
{
    return std::string("Mount helper: ") + helper_path + " " +
           (host.helper_problem.empty() ? "is runnable" : host.helper_problem) + "\n";
}

std::string holder_of(const LockState& state)
{
    if (!state.lock.held)
        return state.lock.users == 0 ? "nobody has it open" : "free";
    if (state.holder)
        return "held by " + describe(*state.holder);
    return "held by a process that cannot be seen from here";
}

std::string lock_lines(const LockState& state)
{
    std::string text = holder_of(state);
    if (state.lock.waiting > 0)
        text += "; " + std::to_string(state.lock.waiting) + " waiting";
    for (const Process& waiter : state.waiters)
        text += indent + ("waiting: " + describe(waiter));
    return text + "\n";
}

std::string lock_section(const HostState& host)
{
    std::string text = "Mount lock: ";
    if (!host.mount_mutex_problem.empty())
        text += host.mount_mutex_problem + "\n";
    else
        text += host.mount_mutex ? lock_lines(*host.mount_mutex) : "nobody uses it\n";
    for (const LockState& view : host.view_locks)
        text +=
            "View lock, semaphore set " + std::to_string(view.lock.set) + ": " + lock_lines(view);
    return text;
}

std::string process_section(const HostState& host)
{
    std::string text = "Processes with libixfs loaded: " + std::to_string(host.callers.size());
    for (const Process& caller : host.callers)
        text += indent + describe(caller);
    if (host.hidden_processes > 0)
        text +=
            indent + ("and perhaps among " +
                      counted(static_cast<std::size_t>(host.hidden_processes), "process", "es") +
                      " that this user may not look into; root may");
    text += "\nHelper processes: " + std::to_string(host.helpers.size());
    for (const HelperProcess& helper : host.helpers)
        text +=
            indent + describe(helper.process) + (helper.orphaned ? "; nobody waits for it" : "");
    return text + "\n";
}

const char* answer_of(Backups backups)
{
    switch (backups) {
    case Backups::found:
        return ", \"backups\" answers";
    case Backups::missing:
        return ", \"backups\" is missing";
    case Backups::failed:
        return ", \"backups\" fails";
    case Backups::no_answer:
        return ", \"backups\" does not answer";
    case Backups::not_looked_for:
        break;
    }
    return "";
}

std::string directory_line(const HostState& host, const MountDirectory& directory)
{
    std::string text = directory.path + ": ";
    if (!directory.is_directory)
        return text + "not a directory";
    if (directory.layers.empty())
        return text + "not mounted, " + (directory.holds_files ? "holds files" : "empty");
    for (std::size_t i = 0; i < directory.layers.size(); ++i)
        text += (i == 0 ? "" : " below ") + directory.layers[i].type + " from " +
                directory.layers[i].source;
    text += answer_of(directory.backups);
    if (directory.made)
        text += ", directory made " + local_time(*directory.made);
    if (host.mounts_are_stale().value_or(false))
        text += ", stale";
    return text;
}

std::string directory_section(const HostState& host)
{
    std::string text = "Mount directories: " + std::to_string(host.directories.size());
    for (const MountDirectory& directory : host.directories)
        text += indent + escape_control_characters(directory_line(host, directory));
    return text + "\n";
}

} // namespace

std::string status_text(const HostState& host, const std::vector<Finding>& findings)
{
    std::string text =
        helper_line(host) + lock_section(host) + process_section(host) + directory_section(host);
    if (findings.empty())
        return text + "\nNothing is wrong.\n";
    text += "\n" + counted(findings.size(), "finding", "s") + ":\n";
    for (const Finding& finding : findings) {
        text += "- " + finding.text + "\n";
        for (const std::string& advice : finding.advice)
            text += "  -> " + advice + "\n";
    }
    return text;
}
