// A question to whoever started the program.
#ifndef IXFS_PREPARE_CONFIRM_H
#define IXFS_PREPARE_CONFIRM_H

#include <string>

// Asks on the program's terminal, also when the standard streams lead elsewhere. True for "y" or
// "yes", in any case. Throws UsageError where there is no terminal: the message names --yes.
bool confirm(const std::string& question);

#endif
