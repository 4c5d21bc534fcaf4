/* The least that a log line costs: to format it and to call back. */
#ifndef IXFS_BENCH_FLOOR_LOG_H
#define IXFS_BENCH_FLOOR_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*floor_log_callback)(int severity, const char* tag, const char* message);

void floor_log(floor_log_callback callback, const char* tag, int severity, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

#ifdef __cplusplus
}
#endif

#endif
