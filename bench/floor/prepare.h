/* The least that a preparation can do for its disks: the calls that the log and the results ask
 * for, relative to two open folders. */
#ifndef IXFS_BENCH_FLOOR_PREPARE_H
#define IXFS_BENCH_FLOOR_PREPARE_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

struct floor_disk {
    const char* old_descriptor; /* in the disks' folder */
    const char* data;           /* in the disks' folder */
    const char* new_descriptor; /* in the view folder */
    const char* link;           /* in the view folder */
    const char* text;           /* what the new descriptor holds */
    size_t length;
};

/* Makes the view folder, and in it each disk's descriptor and link. Returns 0 or an errno. */
int floor_prepare(const char* disk_folder, const char* view_folder, const struct floor_disk* disks,
                  size_t count);

#ifdef __cplusplus
}
#endif

#endif
