#include "status_report.h"

#include <algorithm>
#include <cstddef>

namespace
{

class Metrics
{
public:
    void gauge(const std::string& name, const std::string& help, std::size_t value)
    {
        text_ += "# HELP ixfs_" + name + " " + help + "\n# TYPE ixfs_" + name + " gauge\nixfs_" +
                 name + " " + std::to_string(value) + "\n";
    }

    std::string finished() const { return text_ + "# EOF\n"; }

private:
    std::string text_;
};

template <typename Items, typename IsCounted>
std::size_t count(const Items& items, IsCounted is_counted)
{
    return static_cast<std::size_t>(std::count_if(items.begin(), items.end(), is_counted));
}

std::size_t waiting_for(const LockState& state)
{
    return static_cast<std::size_t>(state.lock.waiting);
}

} // namespace

std::string status_metrics(const HostState& host, const std::vector<Finding>& findings)
{
    const auto is_mounted = [](const MountDirectory& directory) {
        return !directory.layers.empty();
    };
    const std::size_t mounted = count(host.directories, is_mounted);
    const std::optional<LockState>& mutex = host.mount_mutex;
    const bool held = mutex && mutex->lock.held;
    const auto age = held && mutex->holder ? mutex->holder->age.count() : 0;

    Metrics metrics;
    metrics.gauge("helper_runnable", "Whether the mount helper can be run.",
                  host.helper_problem.empty() ? 1 : 0);
    metrics.gauge("mounts", "Mount directories with something mounted on them.", mounted);
    metrics.gauge("stale_mounts", "Those that nobody is left to unmount.",
                  host.mounts_are_stale().value_or(false) ? mounted : 0);
    metrics.gauge("hung_mounts", "Those that did not answer within a second.",
                  count(host.directories, [](const MountDirectory& directory) {
                      return directory.backups == Backups::no_answer;
                  }));
    metrics.gauge("mount_mutex_held", "Whether a process holds the host's mount lock.",
                  held ? 1 : 0);
    metrics.gauge("mount_mutex_holder_age_seconds",
                  "For how long the process runs that holds the mount lock; 0 without one.",
                  static_cast<std::size_t>(age));
    metrics.gauge("waiting_processes", "Processes that wait for the mount lock.",
                  mutex ? waiting_for(*mutex) : 0);
    metrics.gauge("view_locks", "Locks of views.", host.view_locks.size());
    metrics.gauge("helper_processes", "Processes of the mount helper.", host.helpers.size());
    metrics.gauge("orphaned_helpers", "Those that nobody waits for any more.",
                  count(host.helpers, [](const HelperProcess& helper) { return helper.orphaned; }));
    metrics.gauge("callers", "Processes that have libixfs loaded.", host.callers.size());
    metrics.gauge("findings", "What ixfsctl status finds wrong.", findings.size());
    return metrics.finished();
}
