#include "leftovers.h"

#include "log_text.h"
#include "mount_watch.h"
#include "processes.h"
#include "product.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <system_error>
#include <unistd.h>

namespace
{

// Whether a process that uses the library may have mounted, beside this one's own workers.
bool others_may_mount()
{
    const std::vector<Process> users = processes_with_library();
    return std::any_of(users.begin(), users.end(),
                       [](const Process& user) { return user.parent != getpid(); });
}

std::string describe_mount(const Mount& mount)
{
    return escape_control_characters(mount.point + " (type " + mount.type + ", source " +
                                     mount.source + ")");
}

std::string how_to_clean(const std::string& server)
{
    return "ixfsctl clean --server " + server;
}

// The helper and its shell are in the worker's session.
std::vector<Process> helpers_of(pid_t worker)
{
    std::vector<Process> found;
    for (const Process& process : helper_processes()) {
        if (getsid(process.pid) == worker)
            found.push_back(process);
    }
    return found;
}

std::string describe_mount_directory(const std::string& server)
{
    const std::string directory = mount_base + ("/" + server);
    return access(directory.c_str(), F_OK) == 0 ? "\n  the mount directory: " + directory : "";
}

} // namespace

std::vector<Mount> mounts_left(const OwnMounts& own)
{
    const std::vector<Mount> now = in_folders(read_mount_table(), own.folders);
    std::vector<Mount> left = kept(now, own.made);
    std::vector<Mount> doubtful = without(without(now, own.before), own.made);
    // An unmount takes off what is on top. If that was another preparation's, it is for that one to
    // take off this one's.
    const auto exchanged =
        std::min<std::ptrdiff_t>(own.exchanged, std::distance(left.begin(), left.end()));
    std::move(left.begin(), left.begin() + exchanged, std::back_inserter(doubtful));
    left.erase(left.begin(), left.begin() + exchanged);
    if (doubtful.empty() || others_may_mount())
        return left;
    // They may have ended just before that was looked for; then they have unmounted.
    doubtful = kept(doubtful, read_mount_table());
    left.insert(left.end(), doubtful.begin(), doubtful.end());
    return left;
}

std::string describe_mounts_left(const std::vector<Mount>& mounts, const std::string& server)
{
    std::string text = server + " is still mounted:";
    for (const Mount& mount : mounts)
        text += "\n  " + describe_mount(mount);
    return text + "\nTo unmount it: " + how_to_clean(server);
}

std::string describe_helpers_left(pid_t worker, const std::string& server)
{
    std::string text;
    for (const Process& helper : helpers_of(worker))
        text += "\n  " + describe(helper);
    if (text.empty())
        return "";
    return "the helper of " + server + " still runs, and may still mount:" + text +
           "\nTo clean up: " + how_to_clean(server);
}

std::string describe_given_up(pid_t worker, const Request& request, const Phase& phase,
                              const OwnMounts& own)
{
    std::string text;
    for (const Process& helper : helpers_of(worker))
        text += "\n  a helper that still runs: " + describe(helper);
    try {
        for (const Mount& mount : mounts_left(own))
            text += "\n  a mount: " + describe_mount(mount);
    } catch (const std::system_error& error) {
        text += std::string("\n  perhaps a mount, which cannot be found out: ") + error.what();
    }
    if (phase.step() == Step::building_view)
        text += "\n  in the image: the view folder _vmir, which may be half built; a new "
                "preparation completes it";
    if (phase.step() == Step::removing_view)
        text += "\n  in the image: the view folder _vmir, which may be removed in part";
    text += describe_mount_directory(request.server);
    if (text.empty())
        return "given up; nothing is left of " + request.backup_id + " on " + request.server;
    return "given up; left of " + request.backup_id + " on " + request.server + ":" + text +
           "\nTo clean up: " + how_to_clean(request.server);
}
