#include "cleaner.h"

#include "host_locks.h"
#include "host_state.h"
#include "log_text.h"
#include "mount_directories.h"
#include "mount_users.h"
#include "process_end.h"
#include "unmounting.h"

#include <algorithm>
#include <cerrno>
#include <set>
#include <system_error>

namespace
{

std::string message_of(int error)
{
    return std::generic_category().message(error);
}

// The library gives its helper the server's name and port, and the shell a line with them.
bool is_for_server(const Process& helper, const std::string& server)
{
    std::string line;
    for (const std::string& argument : arguments_of(helper.pid))
        line.append(argument).append(" ");
    return line.find(" -server " + server + " -port ") != std::string::npos;
}

// Those among `all` that `first` started, and itself.
std::vector<Process> family_of(const Process& first, const std::vector<Process>& all)
{
    std::vector<Process> family = {first};
    for (std::size_t i = 0; i < family.size(); ++i) {
        const pid_t parent = family[i].pid;
        std::copy_if(all.begin(), all.end(), std::back_inserter(family),
                     [&](const Process& process) { return process.parent == parent; });
    }
    return family;
}

bool is_first(const Process& process, const std::vector<Process>& all)
{
    return std::none_of(all.begin(), all.end(),
                        [&](const Process& other) { return other.pid == process.parent; });
}

bool holds(const std::vector<Process>& processes, pid_t pid)
{
    return std::any_of(processes.begin(), processes.end(),
                       [&](const Process& process) { return process.pid == pid; });
}

const Mount* mount_on(const Mount& mount, const std::vector<Mount>& table)
{
    const auto found = std::find_if(table.begin(), table.end(),
                                    [&](const Mount& other) { return other.parent == mount.id; });
    return found != table.end() ? &*found : nullptr;
}

bool is_mounted(const Mount& mount, const std::vector<Mount>& table)
{
    return std::any_of(table.begin(), table.end(),
                       [&](const Mount& other) { return other.id == mount.id; });
}

// A mount that is concerned and not among `left`: one that no other is on, if there is such. Nothing
// if there is none. Mounts are taken off from the top.
std::optional<Mount> next_mount(const std::vector<Mount>& table, const std::set<int>& left,
                                const std::function<bool(const std::string&)>& is_concerned)
{
    std::optional<Mount> next;
    for (auto mount = table.rbegin(); mount != table.rend(); ++mount) {
        if (!is_concerned(mount->point) || left.count(mount->id) != 0)
            continue;
        if (mount_on(*mount, table) == nullptr)
            return *mount;
        next = *mount;
    }
    return next;
}

} // namespace

void Cleaner::run()
{
    require_own_proc();
    end_helpers();
    take_off_mounts();
    if (server_.empty())
        remove_locks();
}

std::vector<Process> Cleaner::helpers_to_end() const
{
    const std::vector<Process> orphans = orphaned_helpers(helper_processes());
    std::vector<Process> due;
    for (const Process& orphan : orphans) {
        if (!is_first(orphan, orphans))
            continue;
        const std::vector<Process> family = family_of(orphan, orphans);
        const bool concerned =
            server_.empty() ||
            std::any_of(family.begin(), family.end(),
                        [&](const Process& member) { return is_for_server(member, server_); });
        if (concerned)
            due.insert(due.end(), family.begin(), family.end());
    }
    return due;
}

// A helper that was just being started shows in the next round.
void Cleaner::end_helpers()
{
    constexpr int most_rounds = 5;
    for (int round = 0; round < most_rounds; ++round) {
        const std::vector<Process> helpers = helpers_to_end();
        bool is_real = false;
        for (const Process& helper : helpers)
            is_real = begin_step("end " + describe(helper)) || is_real;
        if (!is_real)
            return;
        const auto is_still_due = [this](const Process& helper) {
            return holds(helpers_to_end(), helper.pid);
        };
        const std::vector<Process> running = end_processes(helpers, is_still_due);
        for (const Process& helper : running)
            leave("PID " + std::to_string(helper.pid),
                  "it does not end; it may hang in the kernel");
        if (!running.empty())
            return;
    }
}

void Cleaner::take_off_mounts()
{
    const auto is_ours = [this](const std::string& point) {
        return point != base_ && is_concerned(point);
    };
    std::vector<Mount> table = read_mount_table();
    std::set<int> left;
    std::vector<std::string> bare;
    while (const std::optional<Mount> mount = next_mount(table, left, is_ours)) {
        if (take_off(*mount, table))
            bare.push_back(mount->point);
        else
            left.insert(mount->id);
        if (mode_ == Mode::do_it)
            table = read_mount_table();
        const auto is_same = [&](const Mount& other) {
            return other.id == mount->id;
        };
        if (left.count(mount->id) == 0)
            table.erase(std::remove_if(table.begin(), table.end(), is_same), table.end());
    }
    const auto still_mounted = [&](const std::string& point) {
        return std::any_of(table.begin(), table.end(),
                           [&](const Mount& mount) { return mount.point == point; });
    };
    bare.erase(std::remove_if(bare.begin(), bare.end(), still_mounted), bare.end());
    remove_directories(bare);
}

// Returns whether it is off, or would be.
bool Cleaner::take_off(const Mount& mount, const std::vector<Mount>& table)
{
    if (const Mount* const other = mount_on(mount, table)) {
        leave(mount.point, "something is mounted on it: " + other->point);
        return false;
    }
    if (const std::optional<std::string> obstacle = obstacle_at(mount.point)) {
        leave(mount.point, *obstacle);
        return false;
    }
    if (!begin_step("take off " + mount.point + " (" + mount.type + " from " + mount.source + ")"))
        return true;
    // An unmount takes off what is on top, whatever that is by now.
    const std::vector<Mount> now = read_mount_table();
    if (mount_on(mount, now) != nullptr) {
        leave(mount.point, "something was just mounted on it");
        return false;
    }
    if (!is_mounted(mount, now))
        return true;
    const int error = unmount_top(mount);
    const bool is_off = error == 0 || !is_mounted(mount, read_mount_table());
    if (!is_off)
        leave(mount.point, message_of(error));
    return is_off;
}

// Also those on which nothing is mounted any more, or would be.
void Cleaner::remove_directories(const std::vector<std::string>& unmounted)
{
    for (const MountDirectory& directory : find_mount_directories()) {
        const std::string& path = directory.path;
        const bool was_mounted =
            std::find(unmounted.begin(), unmounted.end(), path) != unmounted.end();
        if (!is_concerned(path) || (!directory.layers.empty() && !was_mounted))
            continue;
        if (!directory.is_directory || directory.holds_files) {
            leave(path, directory.is_directory ? "it holds files" : "it is not a directory");
            continue;
        }
        if (const std::optional<std::string> obstacle = obstacle_at(path)) {
            leave(path, *obstacle);
            continue;
        }
        if (const std::optional<Process> user = find_user_elsewhere(path)) {
            leave(path, "something is mounted on it in the mount namespace of " + describe(*user));
            continue;
        }
        if (!begin_step("remove the directory " + path))
            continue;
        const int error = remove_empty_directory(path);
        if (error != 0 && error != ENOENT)
            leave(path, message_of(error));
    }
}

void Cleaner::remove_locks()
{
    std::vector<HostLock> locks = find_view_locks();
    try {
        if (const std::optional<HostLock> mutex = find_mount_mutex())
            locks.push_back(*mutex);
    } catch (const std::system_error& error) {
        leave("the mount lock", error.what());
    }
    for (const HostLock& lock : locks) {
        if (!is_left_behind(lock) ||
            !begin_step("remove semaphore set " + std::to_string(lock.set) +
                        ", a lock that nobody has open"))
            continue;
        if (delete_unused(lock))
            continue;
        const bool is_in_use_or_gone = errno == EBUSY || errno == EIDRM || errno == EINVAL;
        if (!is_in_use_or_gone)
            leave("semaphore set " + std::to_string(lock.set), message_of(errno));
    }
}

// Why nothing may be changed at a mount directory; nothing if it may.
std::optional<std::string> Cleaner::obstacle_at(const std::string& path) const
{
    const std::vector<Process> callers = processes_with_library();
    if (!callers.empty())
        return "it may be in use by " + describe(callers.front()) + ", which has libixfs loaded";
    if (const int hidden = hidden_processes(); hidden > 0)
        return "it may be in use by one of the processes that this user may not look into; run as "
               "root";
    if (const std::optional<Process> user = find_user_of(path))
        return "it is in use by " + describe(*user);
    return std::nullopt;
}

bool Cleaner::is_concerned(const std::string& path) const
{
    return server_.empty() ? is_at_or_below(path, base_) : path == base_ + "/" + server_;
}

// Returns whether the step is to be done.
bool Cleaner::begin_step(const std::string& what)
{
    ++steps_;
    say_((mode_ == Mode::do_it ? "" : "would ") + escape_control_characters(what));
    return mode_ == Mode::do_it;
}

void Cleaner::leave(const std::string& what, const std::string& reason)
{
    ++left_;
    say_("left " + escape_control_characters(what + ": " + reason));
}
