/* The least that a copy of a file can do. */
#ifndef IXFS_BENCH_FLOOR_COPY_H
#define IXFS_BENCH_FLOOR_COPY_H

#ifdef __cplusplus
extern "C" {
#endif

/* Reads `from` in blocks and writes each to the new file `to`. Returns 0 or an errno. */
int floor_copy(const char* from, const char* to);

#ifdef __cplusplus
}
#endif

#endif
