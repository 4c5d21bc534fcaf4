// What is wrong on a host, and what to do about it.
#ifndef IXFSCTL_FINDINGS_H
#define IXFSCTL_FINDINGS_H

#include "host_state.h"

#include <chrono>
#include <string>
#include <vector>

struct Finding {
    std::string id;                  // such as "stale_mount"; stays the same
    std::string text;                // one sentence
    std::vector<std::string> advice; // sentences, and commands in backquotes
};

// slow_after  a helper that runs for longer than this is one
std::vector<Finding> find_what_is_wrong(const HostState& host, std::chrono::seconds slow_after);

#endif
