/* Mounts the backup images of several servers at a time, and unmounts them. Each line of the library
 * goes to syslog with the name of the server that it is about:
 *
 *     log_to_syslog PORT SERVER... < CREDENTIALS
 *
 * Standard input holds the credential for the mount and that for the unmount, one a line.
 */
#include "log_per_handle.h"
#include "safe_words.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>

struct image {
    char* server;
    ixfs_log_callback log;
    _ixfs_control_t* handle;
};

/* Some lines of the highest severity are no problems. Their messages begin with "INF -". */
static int priority_of(int severity, const char* message)
{
    if (severity == IXFS_LOG_INF || strncmp(message, "INF -", 5) == 0)
        return LOG_INFO;
    return severity == IXFS_LOG_WRN ? LOG_WARNING : LOG_ERR;
}

/* What follows "-cred " may be a credential, and many can read the log. */
static void write_line(void* server, int severity, const char* tag, const char* message)
{
    const char* const secret = strstr(message, "-cred ");
    const int length = secret == NULL ? (int)strcspn(message, "\n") : (int)(secret - message);
    syslog(priority_of(severity, message), "[%s] %s: %.*s", (const char*)server, tag, length,
           message);
}

static int mount(struct image* image, int port, const struct credentials* credentials)
{
    image->log = claim_log(write_line, image->server);
    image->handle = ixfs_init(IXFS_FLAG_UNMOUNT_CRED, NULL, image->log, NULL, NULL);
    if (image->handle == NULL) {
        syslog(LOG_ERR, "[%s] no memory", image->server);
        return 1;
    }
    const char* const mount_point = ixfs_mount(image->handle, credentials->mount,
                                               credentials->unmount, port, image->server, 30, NULL);
    printf("%s: %s\n", image->server,
           mount_point != NULL ? mount_point : ixfs_status_text(ixfs_last_error(image->handle)));
    return mount_point == NULL;
}

static int unmount(const struct image* image)
{
    ec_status status = EC_NO_MEMORY;
    if (image->handle != NULL) {
        status = ixfs_unmount(image->handle);
        if (status != EC_OK)
            printf("%s: unmount: %s\n", image->server, ixfs_status_text(status));
        ixfs_term(image->handle);
    }
    give_back_log(image->log);
    return status != EC_OK;
}

int main(int argc, char* argv[])
{
    struct credentials credentials;
    int is_usable = argc > 2 && argc - 2 <= log_slot_count;
    for (int i = 2; i < argc; ++i)
        is_usable = is_usable && is_server_name(argv[i]);
    if (!is_usable || !read_credentials(&credentials)) {
        fputs("usage: log_to_syslog PORT SERVER... < CREDENTIALS\n" SAFE_WORDS_ARE, stderr);
        return 2;
    }

    struct image images[log_slot_count] = {0};
    const int count = argc - 2;
    openlog("log_to_syslog", LOG_PID, LOG_DAEMON);
    int failed = 0;
    for (int i = 0; i < count; ++i) {
        images[i].server = argv[i + 2];
        failed |= mount(&images[i], atoi(argv[1]), &credentials);
    }
    for (int i = 0; i < count; ++i)
        failed |= unmount(&images[i]);
    closelog();
    return failed;
}
