/* What removing a folder costs at least. */
#ifndef IXFS_BENCH_FLOOR_FOLDER_DELETE_H
#define IXFS_BENCH_FLOOR_FOLDER_DELETE_H

#ifdef __cplusplus
extern "C" {
#endif

/* Removes a folder with all that is in it: reads each folder once, and asks for each entry's
 * removal without a look at it. Logs nothing and looks for no mounts. Returns 0, or -1. */
int floor_folder_delete(const char* path);

#ifdef __cplusplus
}
#endif

#endif
