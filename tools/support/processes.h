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

// "34 s", "12 min", "5 h" or "3 days".
std::string describe(std::chrono::seconds duration);

// "PID 17444 (ixfs-prepare --server media1 ...), user root, running for 34 s"; a long command is
// cut.
std::string describe(const Process& process);

// What a process was started with, credentials and all. Empty if this user may not know.
std::vector<std::string> arguments_of(pid_t pid);

// Whether a process is in the same namespace as this one, of a kind such as "ipc" or "mnt". False
// if this user may not know.
bool shares_namespace(pid_t pid, const std::string& kind);

// Throws std::runtime_error if /proc is missing or numbers processes otherwise than this process does,
// as that of another PID namespace. What is told below would then be of others.
void require_own_proc();

// The processes that share this process's IPC namespace, without this process. Others take other
// locks: to them this is another host.
std::vector<pid_t> processes_of_this_host();

// How many processes keep their secrets from this user, at least. Each may be one of this host, and
// what is told below of all processes leaves it out. None for root with all of root's powers.
int hidden_processes();

// The processes that may use what this one sees mounted or locked: they have libixfs loaded, and
// share its IPC or its mount namespace. Without ixfsctl, which never mounts.
std::vector<Process> processes_with_library();

// Of the processes of this host those that run the mount helper in this mount namespace: the
// helper, the shell that was started for it, and what these started.
std::vector<Process> helper_processes();

// Those among these helpers that nobody waits for any more: the process that started their shell is
// gone, and nobody reads what they print. A helper that was started by hand is none, nor one that
// stays behind to serve a mount. None if processes are hidden from this user.
std::vector<Process> orphaned_helpers(const std::vector<Process>& helpers);

#endif
