/* Mounts a server's backup image, lists the clients that it holds backups of, and unmounts it:
 *
 *     mount SERVER PORT < CREDENTIALS
 *
 * Standard input holds the credential for the mount and that for the unmount, one a line.
 */
#include "safe_words.h"

#include <ixfs.h>

#include <dirent.h>
#include <mntent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Prints problems. Some lines of the highest severity are none: their messages begin with "INF -".
 * What shows the helper's command line shows a credential. */
static void print_problem(int severity, const char* tag, const char* message)
{
    if (severity > IXFS_LOG_WRN || strncmp(message, "INF -", 5) == 0)
        return;
    fprintf(stderr, "%s %s", tag, strstr(message, "-cred") == NULL ? message : "helper not run\n");
}

static int list_clients(const char* mount_point)
{
    char path[1024 + sizeof "/backups"];
    snprintf(path, sizeof path, "%s/backups", mount_point);
    DIR* const backups = opendir(path);
    if (backups == NULL) {
        perror(path);
        return 1;
    }
    for (const struct dirent* entry = readdir(backups); entry != NULL; entry = readdir(backups)) {
        if (entry->d_name[0] != '.')
            puts(entry->d_name);
    }
    closedir(backups);
    return 0;
}

static int is_mounted(const char* directory)
{
    FILE* const table = setmntent("/proc/self/mounts", "r");
    if (table == NULL)
        return 1; /* nobody knows */
    int found = 0;
    for (const struct mntent* mount = getmntent(table); mount != NULL; mount = getmntent(table))
        found |= strcmp(mount->mnt_dir, directory) == 0;
    endmntent(table);
    return found;
}

/* EC_OK does not tell that nothing is mounted any more; the mount table does. */
static int unmount(_ixfs_control_t* handle, const char* mount_point)
{
    char directory[1024]; /* mount_point ends with the mount */
    snprintf(directory, sizeof directory, "%s", mount_point);
    const ec_status status = ixfs_unmount(handle);
    if (status != EC_OK)
        fprintf(stderr, "unmount: %s\n", ixfs_status_text(status));
    const int still_mounted = is_mounted(directory);
    if (still_mounted)
        fprintf(stderr, "still mounted: %s\n", directory);
    return status != EC_OK || still_mounted;
}

int main(int argc, char* argv[])
{
    char input[1024] = "";
    if (argc == 3)
        input[fread(input, 1, sizeof input - 1, stdin)] = '\0';
    const char* const mount_cred = strtok(input, "\n");
    const char* const unmount_cred = strtok(NULL, "\n");
    if (unmount_cred == NULL || !is_server_name(argv[1]) || !is_credential(mount_cred) ||
        !is_credential(unmount_cred)) {
        fputs("usage: mount SERVER PORT < CREDENTIALS\n" SAFE_WORDS_ARE, stderr);
        return 2;
    }
    _ixfs_control_t* const handle =
        ixfs_init(IXFS_FLAG_UNMOUNT_CRED, NULL, print_problem, NULL, NULL);
    if (handle == NULL)
        return 1;
    int failed = 1;
    const char* const mount_point =
        ixfs_mount(handle, mount_cred, unmount_cred, atoi(argv[2]), argv[1], 30, NULL);
    if (mount_point == NULL) {
        fprintf(stderr, "not mounted: %s\n", ixfs_status_text(ixfs_last_error(handle)));
    } else {
        failed = list_clients(mount_point);
        failed |= unmount(handle, mount_point);
    }
    ixfs_term(handle);
    return failed;
}
