// What the program says, and where.
#ifndef IXFSCTL_CONSOLE_H
#define IXFSCTL_CONSOLE_H

#include "command.h"

#include <string>

// Writes to standard output. Complains and returns exit_failure when that cannot be done.
ExitStatus print(const std::string& text);

// Writes a line to standard error, after the program's name.
void complain(const std::string& text);

#endif
