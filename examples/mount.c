/* Mounts a server's backup image, lists the clients that it holds backups of, and unmounts it:
 *
 *     mount SERVER PORT < CREDENTIALS
 *
 * Standard input holds the credential for the mount and that for the unmount, one a line.
 */
#include <ixfs.h>

#include <dirent.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Some lines hold credentials: print them where nobody else reads. */
static void print_line(int severity, const char* tag, const char* message)
{
    static const char* const names[] = {"error", "warning", "info"};
    fprintf(stderr, "%-7s %s %s", names[severity], tag, message);
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

int main(int argc, char* argv[])
{
    char input[512];
    input[fread(input, 1, sizeof input - 1, stdin)] = '\0';
    const char* const mount_cred = strtok(input, "\n");
    const char* const unmount_cred = strtok(NULL, "\n");
    if (argc != 3 || unmount_cred == NULL) {
        fputs("usage: mount SERVER PORT < CREDENTIALS\n", stderr);
        return 2;
    }
    _ixfs_control_t* const handle = ixfs_init(IXFS_FLAG_UNMOUNT_CRED, NULL, print_line, NULL, NULL);
    if (handle == NULL)
        return 1;
    int failed = 1;
    const char* const mount_point =
        ixfs_mount(handle, mount_cred, unmount_cred, atoi(argv[2]), argv[1], 30, NULL);
    if (mount_point == NULL)
        fprintf(stderr, "not mounted: status %d\n", (int)ixfs_last_error(handle));
    else
        failed = list_clients(mount_point);
    ixfs_term(handle); /* unmounts */
    return failed;
}
