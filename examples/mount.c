/* Mounts a server's backup image, lists the clients that it holds backups of, and unmounts it:
 *
 *     mount SERVER PORT < CREDENTIALS
 *
 * Standard input holds the credential for the mount and that for the unmount, one a line.
 */
#include "outcome.h"
#include "safe_words.h"

#include <ixfs.h>

#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>

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

/* EC_OK does not tell that nothing is mounted any more. */
static int unmount(_ixfs_control_t* handle, const char* mount_point)
{
    char directory[1024]; /* mount_point ends with the mount */
    snprintf(directory, sizeof directory, "%s", mount_point);
    const ec_status status = ixfs_unmount(handle);
    if (status != EC_OK)
        fprintf(stderr, "unmount: %s\n", ixfs_status_text(status));
    return is_still_mounted(directory) || status != EC_OK;
}

int main(int argc, char* argv[])
{
    struct credentials credentials;
    if (argc != 3 || !is_server_name(argv[1]) || !read_credentials(&credentials)) {
        fputs("usage: mount SERVER PORT < CREDENTIALS\n" SAFE_WORDS_ARE, stderr);
        return 2;
    }
    _ixfs_control_t* const handle =
        ixfs_init(IXFS_FLAG_UNMOUNT_CRED, NULL, print_problem, NULL, NULL);
    if (handle == NULL)
        return 1;
    int failed = 1;
    const char* const mount_point = ixfs_mount(handle, credentials.mount, credentials.unmount,
                                               atoi(argv[2]), argv[1], 30, NULL);
    if (mount_point == NULL) {
        fprintf(stderr, "not mounted: %s\n", ixfs_status_text(ixfs_last_error(handle)));
    } else {
        failed = list_clients(mount_point);
        failed |= unmount(handle, mount_point);
    }
    ixfs_term(handle);
    return failed;
}
