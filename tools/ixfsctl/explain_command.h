// ixfsctl explain: what a status or a log line means, and what to do about it.
#ifndef IXFSCTL_EXPLAIN_COMMAND_H
#define IXFSCTL_EXPLAIN_COMMAND_H

#include "command.h"

#include <string>

// Explains a status by its number, name or text, or a log line; or those of standard input that tell
// of a problem, if `subject` is "-". Returns exit_failure if it is neither.
ExitStatus explain_on_request(const std::string& subject);

#endif
