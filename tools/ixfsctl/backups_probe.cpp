#include "child_call.h"
#include "mount_directories.h"
#include "proc_file.h"
#include "processes.h"

#include <cerrno>
#include <set>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <utility>

namespace
{

constexpr std::chrono::seconds patience_with_look(1);

// Returns the error number, 0 if it is there.
int look_at(const std::string& path)
{
    struct stat status {
    };
    return lstat(path.c_str(), &status) == 0 ? 0 : errno;
}

ChildCall begin_look(const std::string& folder)
{
    return ChildCall([path = folder + "/backups"] { return look_at(path); });
}

// The name of the process that looks into a mount. The number of a mount is its own in all mount
// namespaces.
std::string look_name(const Mount& mount)
{
    return "look " + std::to_string(mount.id);
}

ChildCall begin_look(const Mount& mount)
{
    return ChildCall([mount] {
        prctl(PR_SET_NAME, look_name(mount).c_str());
        return look_at(mount.point + "/backups");
    });
}

// The looks of earlier runs that were given up, and hang beyond the reach of signals.
std::set<std::string> hanging_looks()
{
    const std::optional<std::string> program = read_proc_link("/proc/self/exe");
    std::set<std::string> names;
    for (const pid_t pid : numbers_in_proc("/proc")) {
        const std::string folder = "/proc/" + std::to_string(pid) + "/";
        if (!program || read_proc_link(folder + "exe") != program)
            continue;
        const std::optional<Process> process = find_process(pid);
        if (process && process->age > patience_with_look) {
            const std::string name = read_proc_file(folder + "comm").value_or("");
            names.insert(name.substr(0, name.find('\n')));
        }
    }
    return names;
}

Backups meaning_of(int error)
{
    switch (error) {
    case 0:
        return Backups::found;
    case ENOENT:
        return Backups::missing;
    default:
        return Backups::failed;
    }
}

} // namespace

void look_for_backups(std::vector<MountDirectory>& directories)
{
    const std::set<std::string> hanging = hanging_looks();
    std::vector<std::pair<MountDirectory*, ChildCall>> looks;
    for (MountDirectory& directory : directories) {
        if (directory.layers.empty())
            continue;
        // Another look would hang, too. A job that looks each minute would pile them up.
        if (hanging.count(look_name(directory.layers.back())) != 0)
            directory.backups = Backups::no_answer;
        else
            looks.emplace_back(&directory, begin_look(directory.layers.back()));
    }
    const auto end = ChildCall::Clock::now() + patience_with_look;
    for (const auto& [directory, look] : looks) {
        const std::optional<int> error = look.result_by(end);
        directory->error = error.value_or(0);
        directory->backups = error ? meaning_of(*error) : Backups::no_answer;
    }
}

bool answers(const std::string& folder)
{
    return begin_look(folder).result_by(ChildCall::Clock::now() + patience_with_look).has_value();
}
