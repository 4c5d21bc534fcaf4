/* The least that reading a whole file can do. */
#ifndef IXFS_BENCH_FLOOR_WHOLE_FILE_H
#define IXFS_BENCH_FLOOR_WHOLE_FILE_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Returns the file's content, in a block of its size for the caller to free; null on failure. */
char* floor_whole_file(const char* path, size_t* size);

#ifdef __cplusplus
}
#endif

#endif
