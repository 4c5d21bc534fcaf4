// The library's log lines on standard error.
#ifndef IXFS_PREPARE_LOG_LINES_H
#define IXFS_PREPARE_LOG_LINES_H

#include <ixfs.h>

// Returns the log callback that prints each line as "<severity> <tag>: <message>", only the errors
// where `quiet` is set. A message is always one line: control characters in it are shown as "\x..".
// Credentials in the helper's command lines are masked. Any thread may enter it at any time.
ixfs_log_callback log_to_standard_error(bool quiet);

#endif
