#include "mount_users.h"

#include "mount_table.h"
#include "proc_file.h"

#include <sstream>
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

} // namespace

std::optional<Process> find_user_of(const std::string& path)
{
    for (const pid_t pid : numbers_in_proc("/proc")) {
        if (pid == getpid() || !shares_namespace(pid, "mnt"))
            continue;
        if (works_below("/proc/" + std::to_string(pid) + "/", path)) {
            if (std::optional<Process> user = find_process(pid))
                return user;
        }
    }
    return std::nullopt;
}
