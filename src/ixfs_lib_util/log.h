// Log lines beyond the public formatters.
#ifndef IXFS_LOG_H
#define IXFS_LOG_H

#include "ixfs.h"

// A formatter with _ixfs_log's arguments, for operations that run on more than one kind of thread.
typedef void (*LogFunction)(_ixfs_control_t*, const char*, int, const char*, ...) IXFS_PRINTF(4, 5);

// _ixfs_log for the validation thread: silent from ixfs_term on, which waits for a line under way.
void log_from_validation_thread(_ixfs_control_t* handle, const char* function_tag, int severity,
                                const char* format, ...) IXFS_PRINTF(4, 5);

#endif
