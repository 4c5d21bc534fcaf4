/* What a program should tell of its calls: the problems in the log, and an image that is still
 * mounted. Copy this file. */
#ifndef OUTCOME_H
#define OUTCOME_H

#include <ixfs.h>

#include <mntent.h>
#include <stdio.h>
#include <string.h>

/* A log callback. Some lines of the highest severity are no problems: their messages begin with
 * "INF -". What shows the helper's command line shows a credential. */
static inline void print_problem(int severity, const char* tag, const char* message)
{
    if (severity > IXFS_LOG_WRN || strncmp(message, "INF -", 5) == 0)
        return;
    fprintf(stderr, "%s %s", tag, strstr(message, "-cred") == NULL ? message : "helper not run\n");
}

/* A call can succeed without its unmount. The mount table tells. */
static inline int is_still_mounted(const char* directory)
{
    FILE* const table = setmntent("/proc/self/mounts", "r");
    int found = table == NULL; /* then nobody knows */
    if (table != NULL) {
        for (const struct mntent* mount = getmntent(table); mount != NULL; mount = getmntent(table))
            found |= strcmp(mount->mnt_dir, directory) == 0;
        endmntent(table);
    }
    if (found)
        fprintf(stderr, "still mounted: %s\n", directory);
    return found;
}

#endif
