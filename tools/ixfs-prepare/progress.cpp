#include "progress.h"

#include "host_locks.h"
#include "processes.h"

#include <algorithm>
#include <chrono>
#include <system_error>

namespace
{

using std::chrono::seconds;

constexpr long all_pauses = 20; // seconds, of the library's pauses for the configuration

long whole_seconds(Phase::Time::duration time)
{
    return std::max<long>(std::chrono::duration_cast<seconds>(time).count(), 0);
}

// ", held by PID ...", if that can be found out.
std::string holder_of_lock()
try {
    const std::optional<HostLock> lock = find_mount_mutex();
    if (!lock || !lock->held || lock->holder == 0)
        return "";
    const std::optional<Process> holder = find_process(lock->holder);
    return holder ? ", held by " + describe(*holder) : "";
} catch (const std::system_error&) {
    return "";
}

std::string waiting_for_lock(const Phase& phase, Phase::Time now)
{
    return "waiting for the host's lock " + std::to_string(whole_seconds(now - phase.since())) +
           " s" + holder_of_lock();
}

std::string waiting_for_configuration(const Phase& phase, Phase::Time now, bool finishing)
{
    const long left = seconds_of_pause_left(phase, now);
    if (finishing)
        return "waiting for the configuration, which cannot be cut short: up to " +
               std::to_string(left) + " s";
    return "waiting for the configuration " + std::to_string(all_pauses - left) + " s of " +
           std::to_string(all_pauses);
}

} // namespace

long seconds_of_pause_left(const Phase& phase, Phase::Time now)
{
    if (!phase.end_of_pauses())
        return 0;
    const seconds left = std::chrono::ceil<seconds>(*phase.end_of_pauses() - now);
    return std::max<long>(left.count(), 0);
}

std::string progress_of(const Phase& phase, const std::string& server, Phase::Time now,
                        bool finishing)
{
    const std::string front = finishing ? "finishing: " : "";
    switch (phase.step()) {
    case Step::waiting_for_lock:
        return front + waiting_for_lock(phase, now);
    case Step::mounting:
        return front + "mounting " + server;
    case Step::reading_configuration:
        if (phase.end_of_pauses())
            return front + waiting_for_configuration(phase, now, finishing);
        break;
    case Step::building_view:
        if (phase.disks() != 0)
            return front + "disk " +
                   std::to_string(std::min(phase.disks_done() + 1, phase.disks())) + " of " +
                   std::to_string(phase.disks());
        break;
    case Step::unmounting:
        if (phase.waits_to_unmount())
            return front + waiting_for_lock(phase, now) + ", to unmount " + server;
        break;
    default:
        break;
    }
    return front + step_name(phase.step());
}
