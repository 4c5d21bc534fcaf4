// What there is of libixfs on this host at this moment.
#ifndef IXFSCTL_HOST_STATE_H
#define IXFSCTL_HOST_STATE_H

#include "host_locks.h"
#include "mount_directories.h"
#include "processes.h"

#include <optional>
#include <string>
#include <vector>

struct LockState {
    HostLock lock;
    std::optional<Process> holder; // nothing if nobody holds it, or this user cannot see who
    std::vector<Process> waiters;
};

struct HelperProcess {
    Process process;
    bool orphaned;
};

struct HostState {
    std::time_t time;
    std::string host;
    std::string helper_problem;   // why the helper cannot be run; empty if it can
    std::vector<Process> callers; // that have the library loaded
    int hidden_processes;         // that can be callers, too: this user may not know
    std::vector<MountDirectory> directories;
    std::optional<LockState> mount_mutex;
    std::string mount_mutex_problem; // why it cannot be read; empty if it can
    std::vector<LockState> view_locks;
    bool semaphores_used_up;
    std::vector<HelperProcess> helpers;

    // Whether nobody is left who would unmount. Nothing if this user cannot know.
    std::optional<bool> mounts_are_stale() const;
};

HostState look_at_host();

// Whether the last user of a lock left it behind. The next one can use it all the same.
bool is_left_behind(const HostLock& lock);

#endif
