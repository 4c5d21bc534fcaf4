// ixfsctl clean: takes away what killed processes left behind.
#ifndef IXFSCTL_CLEAN_COMMAND_H
#define IXFSCTL_CLEAN_COMMAND_H

#include "command.h"

#include <string>

struct CleanOptions {
    std::string server; // empty for all
    bool dry_run = false;
    bool yes = false;
};

// Says what is to be done, asks unless that was answered before, and does it. Returns exit_failure
// if something had to be left. Throws UsageError if nobody can be asked.
ExitStatus clean(const CleanOptions& options);

#endif
