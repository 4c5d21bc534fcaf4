// What /proc tells of other processes. A process that ends meanwhile counts as not there.
#ifndef IXFS_TOOLS_PROCESSES_H
#define IXFS_TOOLS_PROCESSES_H

#include <chrono>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

struct Process {
    pid_t pid;
    pid_t parent;
    char state;          // as /proc has it, such as 'D' for one that waits for a file system
    std::string command; // its arguments; credentials masked, control characters escaped
    std::string user;    // name, or number where it has none
    std::chrono::seconds age;
};

// A process, or nothing if it is not there. A zombie is not there.
std::optional<Process> find_process(pid_t pid);

// "PID 17444 (ixfs-prepare --server media1 ...), user root, running for 34 s"; a long command is
// cut.
std::string describe(const Process& process);

// The processes that share this process's IPC namespace, without this process. Others take other
// locks: to them this is another host.
std::vector<pid_t> processes_of_this_host();

// Of them those that have libixfs loaded, and those that run the mount helper in this mount
// namespace: the helper, the shell that was started for it, and what these started.
std::vector<Process> processes_with_library();
std::vector<Process> helper_processes();

#endif
