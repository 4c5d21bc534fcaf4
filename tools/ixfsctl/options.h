// The command line.
#ifndef IXFSCTL_OPTIONS_H
#define IXFSCTL_OPTIONS_H

#include "command.h"

// Reads the command line. Returns what it asks for, still to be done. Throws UsageError.
Action parse_options(int argc, char** argv);

#endif
