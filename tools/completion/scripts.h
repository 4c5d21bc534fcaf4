// The scripts that complete a command.
#ifndef IXFS_COMPLETION_SCRIPTS_H
#define IXFS_COMPLETION_SCRIPTS_H

#include "command.h"

#include <string>

namespace completion
{

std::string bash_script(const Command& command);
std::string zsh_script(const Command& command);

// What each program here does: writes the script for bash to the file that its first argument names,
// and the one for zsh to that of its second. Returns the exit status.
int write_scripts(const Command& command, int argc, char** argv);

} // namespace completion

#endif
