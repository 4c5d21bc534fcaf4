// ixfsctl status: what there is of libixfs on this host, and what is wrong with it.
#ifndef IXFSCTL_STATUS_COMMAND_H
#define IXFSCTL_STATUS_COMMAND_H

#include "command.h"

#include <CLI/CLI.hpp>

// Registers the subcommand, which sets `action` when it is chosen.
void add_status_command(CLI::App& app, Action& action);

#endif
