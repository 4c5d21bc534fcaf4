/* The C example of a log for each handle, as its test calls it. */
#ifndef IXFS_TESTS_LOG_PER_HANDLE_IN_C_H
#define IXFS_TESTS_LOG_PER_HANDLE_IN_C_H

#include "ixfs.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*line_writer)(void* context, int severity, const char* tag, const char* message);

ixfs_log_callback claim_log_in_c(line_writer write, void* context);
void give_back_log_in_c(ixfs_log_callback callback);
int log_slot_count_in_c(void);

#ifdef __cplusplus
}
#endif

#endif
