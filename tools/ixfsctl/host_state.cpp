#include "host_state.h"

#include "product.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace
{

std::string host_name()
{
    char name[256] = "";
    gethostname(name, sizeof(name) - 1);
    return name;
}

std::string problem_of_helper()
{
    struct stat status {
    };
    if (stat(helper_path, &status) != 0)
        return errno == ENOENT ? "is missing" : std::generic_category().message(errno);
    if (!S_ISREG(status.st_mode))
        return "is not a file";
    if ((status.st_mode & (S_IXUSR | S_IXGRP | S_IXOTH)) == 0)
        return "is not executable";
    if (faccessat(AT_FDCWD, helper_path, X_OK, AT_EACCESS) != 0)
        return "is not executable for this user";
    return "";
}

LockState state_of(const HostLock& lock)
{
    LockState state{lock, std::nullopt, {}};
    if (lock.held && lock.holder != 0)
        state.holder = find_process(lock.holder);
    if (lock.waiting == 0)
        return state;
    for (const pid_t pid : processes_waiting_for(lock)) {
        const std::optional<Process> waiter = find_process(pid);
        if (waiter && pid != lock.holder)
            state.waiters.push_back(*waiter);
    }
    return state;
}

void look_at_mount_mutex(HostState& host)
{
    try {
        if (const std::optional<HostLock> lock = find_mount_mutex())
            host.mount_mutex = state_of(*lock);
    } catch (const std::system_error& error) {
        host.mount_mutex_problem = error.what();
    }
}

std::vector<HelperProcess> find_helpers()
{
    const std::vector<Process> all = helper_processes();
    const std::vector<Process> orphans = orphaned_helpers(all);
    std::vector<HelperProcess> helpers;
    for (const Process& process : all) {
        const bool orphaned =
            std::any_of(orphans.begin(), orphans.end(),
                        [&](const Process& orphan) { return orphan.pid == process.pid; });
        helpers.push_back({process, orphaned});
    }
    return helpers;
}

} // namespace

std::optional<bool> HostState::mounts_are_stale() const
{
    if (!callers.empty())
        return false;
    if (hidden_processes > 0)
        return std::nullopt;
    return true;
}

// The callers come last: one that begins meanwhile makes no mount stale that is its own.
HostState look_at_host()
{
    require_own_proc();
    HostState host{};
    host.time = std::time(nullptr);
    host.host = host_name();
    host.helper_problem = problem_of_helper();
    host.directories = find_mount_directories();
    look_for_backups(host.directories);
    look_at_mount_mutex(host);
    for (const HostLock& lock : find_view_locks())
        host.view_locks.push_back(state_of(lock));
    host.semaphores_used_up = semaphores_are_used_up();
    host.helpers = find_helpers();
    host.callers = processes_with_library();
    host.hidden_processes = hidden_processes();
    return host;
}

bool is_left_behind(const HostLock& lock)
{
    return lock.users == 0 && !lock.busy;
}
