// Ends processes for good.
#ifndef IXFSCTL_PROCESS_END_H
#define IXFSCTL_PROCESS_END_H

#include "processes.h"

#include <functional>
#include <vector>

// Asks all of `processes` to end, and kills those that still run a few seconds later. Leaves out
// each that `is_wanted` no longer holds true of at the moment when its number can no more be given
// to another process. Returns those that still run.
std::vector<Process> end_processes(const std::vector<Process>& processes,
                                   const std::function<bool(const Process&)>& is_wanted);

#endif
