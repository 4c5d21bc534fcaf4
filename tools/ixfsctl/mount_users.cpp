#include "mount_users.h"

#include "mount_table.h"
#include "proc_file.h"

#include <algorithm>
#include <functional>
#include <sstream>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

namespace
{

bool maps_below(const std::string& process, const std::string& path)
{
    std::istringstream maps(read_proc_file(process + "maps").value_or(""));
    for (std::string line; std::getline(maps, line);) {
        const std::size_t begin = line.find('/');
        if (begin != std::string::npos && is_at_or_below(line.substr(begin), path))
            return true;
    }
    return false;
}

bool works_below(const std::string& process, const std::string& path)
{
    std::vector<std::string> links = {process + "cwd", process + "root", process + "exe"};
    for (const int descriptor : numbers_in_proc(process + "fd"))
        links.push_back(process + "fd/" + std::to_string(descriptor));
    for (const std::string& link : links) {
        const std::optional<std::string> target = read_proc_link(link);
        if (target && is_at_or_below(*target, path))
            return true;
    }
    return maps_below(process, path);
}

// The first process other than this one that `is_user` holds true of.
std::optional<Process> find_process_that(const std::function<bool(pid_t)>& is_user)
{
    for (const pid_t pid : numbers_in_proc("/proc")) {
        if (pid == getpid() || !is_user(pid))
            continue;
        if (std::optional<Process> user = find_process(pid))
            return user;
    }
    return std::nullopt;
}

std::string folder_of(pid_t pid)
{
    return "/proc/" + std::to_string(pid) + "/";
}

// The mount that a folder is in: on the way up from it the first one, of several on one point the
// last.
const Mount* mount_around(const std::vector<Mount>& table, std::string folder)
{
    for (; !folder.empty(); folder.erase(folder.rfind('/'))) {
        for (auto mount = table.rbegin(); mount != table.rend(); ++mount) {
            if (mount->point == folder)
                return &*mount;
        }
    }
    return !table.empty() ? &table.front() : nullptr;
}

// Whether something is mounted on a directory of the file system `device`.
bool is_mount_point(const std::vector<Mount>& table, const std::string& directory,
                    const std::string& device)
{
    return std::any_of(table.begin(), table.end(), [&](const Mount& mount) {
        return mount.point == directory &&
               std::any_of(table.begin(), table.end(), [&](const Mount& parent) {
                   return parent.id == mount.parent && parent.device == device;
               });
    });
}

} // namespace

std::optional<Process> find_user_of(const std::string& path)
{
    return find_process_that([&](pid_t pid) {
        return shares_namespace(pid, "mnt") && works_below(folder_of(pid), path);
    });
}

std::optional<Process> find_user_of_device(const std::string& device)
{
    return find_process_that([&](pid_t pid) {
        const std::vector<Mount> table = mount_table_of(pid);
        return std::any_of(table.begin(), table.end(), [&](const Mount& mount) {
            return mount.device == device && works_below(folder_of(pid), mount.point);
        });
    });
}

std::optional<Process> find_user_elsewhere(const std::string& directory)
{
    const std::vector<Mount> own = read_mount_table();
    const Mount* const around = mount_around(own, directory.substr(0, directory.rfind('/')));
    return find_process_that([&](pid_t pid) {
        return around != nullptr && !shares_namespace(pid, "mnt") &&
               is_mount_point(mount_table_of(pid), directory, around->device);
    });
}
