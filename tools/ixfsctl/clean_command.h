// ixfsctl clean: takes away what killed processes left behind.
#ifndef IXFSCTL_CLEAN_COMMAND_H
#define IXFSCTL_CLEAN_COMMAND_H

#include "command.h"

#include <CLI/CLI.hpp>

// Registers the subcommand, which sets `action` when it is chosen.
void add_clean_command(CLI::App& app, Action& action);

#endif
