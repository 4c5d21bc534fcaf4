// The product's own processes: those that use the library, and the mount helper's.
#include "proc_file.h"
#include "processes.h"
#include "product.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <set>
#include <unistd.h>
#include <utility>

namespace
{

bool ends_with(const std::string& text, const std::string& end)
{
    return text.size() >= end.size() &&
           text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// ixfsctl may have the library loaded, but mounts nothing.
bool is_onlooker(pid_t pid)
{
    return ends_with(read_proc_link(proc_path(pid, "exe")).value_or(""), "/ixfsctl");
}

// Each line of the process's maps ends in the path of a file, if it maps one.
bool has_library(pid_t pid)
{
    const std::string maps = read_proc_file(proc_path(pid, "maps")).value_or("");
    const std::string file = std::string("/") + library_name;
    for (std::size_t at = maps.find(file); at != std::string::npos; at = maps.find(file, at + 1)) {
        const std::size_t next = maps.find_first_of("/\n", at + 1);
        if (next == std::string::npos || maps[next] == '\n')
            return true;
    }
    return false;
}

bool is_command(const std::string& word)
{
    return word == "mount" || word == "umount";
}

// As the library has the shell start it; the shell may also have become the helper.
bool is_shell_of_helper(const std::vector<std::string>& arguments)
{
    const std::string front = "\"" + std::string(helper_path) + "\" ";
    if (arguments.size() < 3 || arguments[1] != "-c")
        return false;
    const std::string& line = arguments.back();
    return line.compare(0, front.size(), front) == 0 &&
           is_command(line.substr(front.size(), line.find(' ', front.size()) - front.size()));
}

// Its program has another path where a folder above it is a symbolic link. A helper that is a script
// is an argument of its interpreter. An editor, say, may have it for an argument, too, but then no
// command follows.
bool is_helper(pid_t pid)
{
    const std::string program = read_proc_link(proc_path(pid, "exe")).value_or("");
    if (program == helper_path || program == helper_path + std::string(" (deleted)"))
        return true;
    const std::vector<std::string> arguments = arguments_of(pid);
    for (std::size_t i = 0; i + 1 < arguments.size(); ++i) {
        if (arguments[i] == helper_path && is_command(arguments[i + 1]))
            return true;
    }
    return is_shell_of_helper(arguments);
}

using ParentsByChild = std::map<pid_t, pid_t>;

// A process's topmost ancestor of `family`: itself, if that is in it and its parent is not.
// Nothing if no ancestor is in it. Processes come and go meanwhile, so the chain could be a circle.
std::optional<pid_t> ancestor_in(const std::set<pid_t>& family, const ParentsByChild& parents,
                                 pid_t pid)
{
    std::optional<pid_t> top;
    std::size_t steps = 0;
    for (auto found = parents.find(pid); found != parents.end() && steps <= parents.size();
         found = parents.find(found->second), ++steps) {
        if (family.count(found->first) != 0)
            top = found->first;
    }
    return top;
}

ParentsByChild parents_of(const std::vector<Process>& processes)
{
    ParentsByChild parents;
    for (const Process& process : processes)
        parents[process.pid] = process.parent;
    return parents;
}

std::vector<Process> found_of(const std::vector<pid_t>& pids)
{
    std::vector<Process> processes;
    for (const pid_t pid : pids) {
        if (std::optional<Process> process = find_process(pid))
            processes.push_back(*std::move(process));
    }
    return processes;
}

// Whether a process other than these has the file open, as far as this user may know.
bool is_open_elsewhere(const std::string& file, const std::set<pid_t>& these)
{
    for (const pid_t pid : numbers_in_proc("/proc")) {
        if (these.count(pid) != 0)
            continue;
        const std::string descriptors = proc_path(pid, "fd");
        for (const int descriptor : numbers_in_proc(descriptors)) {
            if (read_proc_link(descriptors + "/" + std::to_string(descriptor)) == file)
                return true;
        }
    }
    return false;
}

// The processes with these numbers, and what they started.
std::vector<Process> families_of(const std::set<pid_t>& roots, const std::vector<Process>& all)
{
    const ParentsByChild parents = parents_of(all);
    std::vector<Process> families;
    for (const Process& process : all) {
        if (ancestor_in(roots, parents, process.pid))
            families.push_back(process);
    }
    return families;
}

} // namespace

std::vector<Process> processes_with_library()
{
    std::vector<pid_t> pids;
    for (const pid_t pid : numbers_in_proc("/proc")) {
        const bool is_near = shares_namespace(pid, "ipc") || shares_namespace(pid, "mnt");
        if (pid != getpid() && is_near && !is_onlooker(pid) && has_library(pid))
            pids.push_back(pid);
    }
    return found_of(pids);
}

std::vector<Process> helper_processes()
{
    const std::vector<Process> all = found_of(processes_of_this_host());
    std::set<pid_t> helpers;
    for (const Process& process : all) {
        if (is_helper(process.pid) && shares_namespace(process.pid, "mnt"))
            helpers.insert(process.pid);
    }
    return families_of(helpers, all);
}

std::vector<Process> orphaned_helpers(const std::vector<Process>& helpers)
{
    if (hidden_processes() > 0)
        return {}; // one of them may wait for it
    std::set<pid_t> callers;
    for (const Process& process : processes_with_library())
        callers.insert(process.pid);
    std::set<pid_t> family;
    for (const Process& helper : helpers)
        family.insert(helper.pid);

    // The library reads what its helper prints through a pipe.
    const std::string pipe = "pipe:";
    std::set<pid_t> roots;
    for (const Process& helper : helpers) {
        if (family.count(helper.parent) != 0 || callers.count(helper.parent) != 0)
            continue;
        const std::string output = read_proc_link(proc_path(helper.pid, "fd/1")).value_or("");
        if (output.compare(0, pipe.size(), pipe) == 0 && !is_open_elsewhere(output, family))
            roots.insert(helper.pid);
    }
    return families_of(roots, helpers);
}
