// What the subcommands and main agree on.
#ifndef IXFSCTL_COMMAND_H
#define IXFSCTL_COMMAND_H

#include <functional>

enum ExitStatus { exit_success = 0, exit_failure = 1, exit_bad_usage = 2 };

// What the chosen subcommand does once the whole command line is read. It prints for itself; what it
// throws is complained of, with exit_bad_usage for a UsageError and exit_failure for all else.
using Action = std::function<ExitStatus()>;

#endif
