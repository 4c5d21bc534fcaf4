/* The least that a preparation without disks can do: its mount and its unmount. */
#ifndef IXFS_BENCH_FLOOR_EMPTY_PREPARE_H
#define IXFS_BENCH_FLOOR_EMPTY_PREPARE_H

#ifdef __cplusplus
extern "C" {
#endif

/* Makes a semaphore, runs both commands by popen in turns with it, and lets a thread wait from one
 * to the other. Leaves nothing. Returns 0, or -1. */
int floor_empty_prepare(const char* mount_command, const char* unmount_command);

#ifdef __cplusplus
}
#endif

#endif
