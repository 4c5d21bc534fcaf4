/* What a run of the helper costs at least, one process at a time. */
#ifndef IXFS_BENCH_FLOOR_HELPER_TURN_H
#define IXFS_BENCH_FLOOR_HELPER_TURN_H

#ifdef __cplusplus
extern "C" {
#endif

/* Makes a System V semaphore that one process at a time can take. Returns its id, or -1. Whoever
 * makes it deletes it. */
int floor_semaphore(void);
void floor_delete_semaphore(int semaphore);

/* Takes the semaphore, runs a command by popen, reads all that it prints, gives the semaphore back.
 * Returns 0 if the command printed "EXIT_STATUS=0", else -1. `wait`, if not null, receives for how
 * many seconds the semaphore was waited for. */
int floor_helper_turn(int semaphore, const char* command, double* wait);

#ifdef __cplusplus
}
#endif

#endif
