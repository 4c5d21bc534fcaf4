// ixfsctl explain: what a status or a log line means, and what to do about it.
#ifndef IXFSCTL_EXPLAIN_COMMAND_H
#define IXFSCTL_EXPLAIN_COMMAND_H

#include "command.h"

#include <CLI/CLI.hpp>

// Registers the subcommand, which sets `action` when it is chosen.
void add_explain_command(CLI::App& app, Action& action);

#endif
