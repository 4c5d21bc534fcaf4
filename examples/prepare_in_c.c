/* Prepares a VM for instant recovery, in C:
 *
 *     prepare_in_c SERVER PORT BACKUP_ID DISK... < CREDENTIALS
 *
 * Standard input holds the credential for the mount and that for the unmount, one a line. A DISK is
 * a descriptor in datastore form: "[nfs] backups/vm1/allusers/full/1700000000/vm1/vm1.vmdk.desc".
 */
#include "outcome.h"
#include "safe_words.h"

#include <ixfs_prepare.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int are_usable(int argc, char* argv[])
{
    if (argc < 5 || !is_server_name(argv[1]) || strchr(argv[3], '/') != NULL)
        return 0;
    for (int i = 3; i < argc; ++i) {
        if (!stays_below(argv[i]))
            return 0;
    }
    return 1;
}

static int show(const struct ixfs_prepare_result* result)
{
    if (result == NULL || result->status != EC_OK) {
        fprintf(stderr, "not prepared: %s\n", result == NULL ? "out of memory" : result->error);
        return 1;
    }
    fwrite(result->configuration, 1, result->configuration_length, stdout);
    putchar('\n');
    for (size_t i = 0; i < result->path_count; ++i)
        puts(result->paths[i]);
    return 0;
}

int main(int argc, char* argv[])
{
    struct credentials credentials;
    if (!are_usable(argc, argv) || !read_credentials(&credentials)) {
        fputs("usage: prepare_in_c SERVER PORT BACKUP_ID DISK... < CREDENTIALS\n" SAFE_WORDS_ARE,
              stderr);
        return 2;
    }
    struct ixfs_prepare_request request = IXFS_PREPARE_REQUEST_INIT;
    request.server = argv[1];
    request.port = atoi(argv[2]);
    request.mount_cred = credentials.mount;
    request.unmount_cred = credentials.unmount;
    request.backup_id = argv[3];
    request.disks = (const char* const*)&argv[4];
    request.disk_count = (size_t)(argc - 4);
    request.schedule_type = 0; /* a full backup */
    request.timeout = 30;
    request.new_disk_uuids = 1;
    request.log_callback = print_problem;

    struct ixfs_prepare_result* const result = ixfs_prepare(&request);
    int failed = show(result);
    ixfs_prepare_result_free(result);

    char directory[sizeof "/usr/varnis/var/ixfs/" + 255];
    snprintf(directory, sizeof directory, "/usr/varnis/var/ixfs/%s", argv[1]);
    failed |= is_still_mounted(directory);
    return failed;
}
