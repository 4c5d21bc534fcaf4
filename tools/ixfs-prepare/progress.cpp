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

} // namespace

long seconds_of_pause_left(const Phase& phase, Phase::Time now)
{
    if (!phase.end_of_pauses())
        return 0;
    return std::max<long>(
        std::chrono::ceil<seconds>(*phase.end_of_pauses() - now).count(), 0);
}

std::string progress_of(const Phase& phase, const std::string& server, Phase::Time now)
{
    switch (phase.step()) {
    case Step::waiting_for_lock:
        return waiting_for_lock(phase, now);
    case Step::mounting:
        return "mounting " + server;
    case Step::reading_configuration:
        if (phase.end_of_pauses())
            return "waiting for the configuration " +
                   std::to_string(all_pauses - seconds_of_pause_left(phase, now)) + " s of " +
                   std::to_string(all_pauses);
        break;
    case Step::building_view:
        if (phase.disks() != 0)
            return "disk " + std::to_string(std::min(phase.disks_done() + 1, phase.disks())) +
                   " of " + std::to_string(phase.disks());
        break;
    case Step::unmounting:
        if (phase.waits_to_unmount())
            return waiting_for_lock(phase, now) + ", to unmount " + server;
        break;
    default:
        break;
    }
    return step_name(phase.step());
}
