// ixfsctl status: what there is of libixfs on this host, and what is wrong with it.
#ifndef IXFSCTL_STATUS_COMMAND_H
#define IXFSCTL_STATUS_COMMAND_H

#include "command.h"

struct StatusOptions {
    bool json = false;
    bool openmetrics = false;
    unsigned int slow_after = 120; // seconds for which a helper may run
};

// Prints it. Returns exit_failure if something is wrong. Changes nothing.
ExitStatus show_status(const StatusOptions& options);

#endif
