// The command line.
#ifndef IXFSCTL_OPTIONS_H
#define IXFSCTL_OPTIONS_H

#include "command.h"

namespace CLI
{
class App;
}

// Makes `app` the command line of ixfsctl, which sets `action`. The help and the shells' completion are
// made from it, too; the completion takes the kind of a value from the name of its type, as
// tools/completion/command.h lists them.
void add_options(CLI::App& app, Action& action);

// Reads the command line. Returns what it asks for, still to be done. Throws UsageError.
Action parse_options(int argc, char** argv);

#endif
