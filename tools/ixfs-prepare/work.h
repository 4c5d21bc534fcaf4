// What the worker process does.
#ifndef IXFS_PREPARE_WORK_H
#define IXFS_PREPARE_WORK_H

#include "request.h"

#include <sys/types.h>

struct Surroundings {
    int records;       // where the records go
    int caller_errors; // the caller's standard error
    pid_t supervisor;  // who reads the records and what the helper writes to standard error
};

// Prepares the VM, or removes its view, and tells of it by records. Call it once in a process. If
// the supervisor is gone, the work goes on, and the helper writes to the caller's standard error.
void work(const Request& request, const Surroundings& surroundings) noexcept;

#endif
