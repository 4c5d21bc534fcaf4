/* A program in C that was built when a release was new, and runs with today's library:
 *
 *     client SERVER
 *
 * What it relies on is what the release's headers gave it: numbers, records, signatures.
 */
#include <ixfs.h>
#include <ixfs_prepare.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define IMAGE "backups/sample-client/allusers/full/1700000000"

static int information;

#define EXPECT(condition) expect((condition) != 0, #condition, __LINE__)

static void expect(int condition, const char* what, int line)
{
    if (condition)
        return;
    fprintf(stderr, "client.c:%d: failed: %s\n", line, what);
    exit(1);
}

static void count(int severity, const char* tag, const char* message)
{
    EXPECT(tag != NULL && message[strlen(message) - 1] == '\n');
    information += severity == IXFS_LOG_INF;
}

static void use_numbers(void)
{
    int major, minor, patch;
    EXPECT(sscanf(ixfs_version(), "%d.%d.%d", &major, &minor, &patch) == 3);
    EXPECT(major == IXFS_VERSION_MAJOR);
    EXPECT(IXFS_VERSION_MAKE(major, minor, patch) >= IXFS_VERSION_NUMBER);

    EXPECT(strcmp(ixfs_status_text(EC_OK), "success") == 0);
    EXPECT(strcmp(ixfs_status_text(EC_FILE_NOT_FOUND), "file not found") == 0);
    EXPECT(strcmp(ixfs_status_text(EC_ALREADY_MOUNTED), "already mounted") == 0);
    EXPECT(ixfs_status_text(EC_STATUS_HIGHEST) == NULL);
    EXPECT(ixfs_status_text(EC_STATUS_LOWEST) == NULL);
}

static void log_to_a_job(void* context, int a, int b, int c, int d, int e, const char* format, ...)
{
    EXPECT(a == 0 && b == 0 && c == 0 && d == 0 && e == 0 && strcmp(format, "JBD - %s") == 0);
    ++*(int*)context;
}

static void use_handles(void)
{
    int job_lines = 0;
    _ixfs_control_t* const handle =
        ixfs_init(IXFS_FLAG_UNMOUNT_CRED, NULL, count, log_to_a_job, &job_lines);
    EXPECT(handle != NULL && !_ixfs_is_invalid(handle) && g_lc_time[0] != '\0');
    EXPECT(ixfs_last_error(handle) == EC_OK);

    information = 0;
    _ixfs_log(handle, "client()", IXFS_LOG_INF, "INF - %s %d\n", "line", 1);
    EXPECT(information == 1 && job_lines == 0);
    _ixfs_server_log(handle, "client()", IXFS_LOG_INF, "INF - %s %d\n", "line", 2);
    EXPECT(information == 2 && job_lines == 1);

    EXPECT(ixfs_mount(handle, "", "cred", 4010, "server", 0, NULL) == NULL);
    EXPECT(ixfs_last_error(handle) == EC_INVALID_PARAMETER);
    ixfs_term(handle);
}

/* Both sides know the record: the library makes it, this program reads it and fills its lists. */
static void use_views(void)
{
    _ixfs_control_t* const handle = ixfs_init(IXFS_FLAG_VIEW_ID, NULL, NULL, NULL, NULL);
    _ixfs_view_t* const first = _ixfs_view_create(handle);
    _ixfs_view_t* const second = _ixfs_view_create(handle);
    EXPECT(second->next == first && first->prev == second);
    EXPECT(second->prev == NULL && first->next == NULL);
    EXPECT(second->lock == NULL && !second->lock_held && second->reserved_state == 0);

    char name[200];
    EXPECT(_ixfs_view_lock(handle, second, 77, name, sizeof name) == 1);
    EXPECT(second->lock != NULL && second->lock_held && strstr(name, "_77") != NULL);

    /* Freed with the view: valgrind or a broken heap tells if the nodes are other ones. */
    second->image_list = calloc(1, sizeof *second->image_list);
    second->image_list->next = calloc(1, sizeof *second->image_list);
    second->image_list_metadata = calloc(1, sizeof *second->image_list_metadata);
    second->image_list_metadata->owned[1] = malloc(1);
    second->file_name_mapping = calloc(1, sizeof *second->file_name_mapping);
    second->file_name_mapping->owned[3] = malloc(1);
    second->file_name_mapping->next = calloc(1, sizeof *second->file_name_mapping);
    _ixfs_view_delete(handle, second);
    EXPECT(first->prev == NULL);
    ixfs_term(handle);
}

static void use_mounts(const char* server)
{
    _ixfs_control_t* const handle =
        ixfs_init(IXFS_FLAG_UNMOUNT_CRED | IXFS_FLAG_NEW_DISK_UUID, NULL, count, NULL, NULL);
    char* const mount_point = ixfs_mount(handle, "cred", "cred", 4010, server, 0, NULL);
    EXPECT(mount_point != NULL);
    char path[2000], copy[2000], folder[1100];
    snprintf(folder, sizeof folder, "%s/" IMAGE, mount_point);
    snprintf(path, sizeof path, "%s/vm1/disk.vmdk.desc", folder);
    snprintf(copy, sizeof copy, "%s/a/b/copy.vmdk", folder);

    uint32_t segments = 0;
    EXPECT(_ixfs_folder_create(handle, folder, "a/b", &segments, 0755) == 0 && segments >= 2);
    EXPECT(_ixfs_file_exists(handle, path) == 1);
    EXPECT(_ixfs_copy_desc(handle, path, copy, "copy-flat.vmdk") == 1);
    EXPECT(_ixfs_file_exists(handle, copy) == 1);
    snprintf(copy, sizeof copy, "%s/a/link", folder);
    EXPECT(_ixfs_create_hard_link(handle, path, copy) == 1);
    snprintf(copy, sizeof copy, "%s/a", folder);
    EXPECT(_ixfs_folder_delete(handle, copy) == 0);
    EXPECT(_ixfs_file_exists(handle, copy) == 0);
    EXPECT(ixfs_unmount(handle) == EC_OK);

    EXPECT(ixfs_recreate_minimal_context(handle, "c", "c", 4010, server, 0, "path") == 0);
    EXPECT(ixfs_unmount(handle) == EC_INVALID_PARAMETER);
    ixfs_term(handle);
}

static struct ixfs_prepare_request a_request(const char* server, const char* const* disks)
{
    struct ixfs_prepare_request request = IXFS_PREPARE_REQUEST_INIT;
    request.server = server;
    request.mount_cred = "cred";
    request.unmount_cred = "cred";
    request.backup_id = "sample-client_1700000000";
    request.disks = disks;
    request.disk_count = 2;
    request.port = 4010;
    request.new_disk_uuids = 1;
    request.log_callback = count;
    return request;
}

static void expect_prepared(struct ixfs_prepare_result* result)
{
    EXPECT(result != NULL && result->status == EC_OK && result->error == NULL);
    EXPECT(strlen(result->configuration) == result->configuration_length);
    EXPECT(result->configuration_length > 0);
    EXPECT(result->path_count == 2 && result->paths[2] == NULL);
    EXPECT(strcmp(result->paths[0], "[ds] " IMAGE "/_vmir/disk.vmdk") == 0);
    EXPECT(strcmp(result->paths[1], "[ds] " IMAGE "/_vmir/data.vmdk") == 0);
    ixfs_prepare_result_free(result);
}

static void expect_refused(struct ixfs_prepare_result* result)
{
    EXPECT(result != NULL && result->status == EC_INVALID_PARAMETER && result->error != NULL);
    EXPECT(result->path_count == 0 && result->paths != NULL && result->paths[0] == NULL);
    ixfs_prepare_result_free(result);
}

/* The record grows at its end: `size` tells what this program knows of it. */
static void use_preparations(const char* server)
{
    const char* const disks[] = {"[ds] " IMAGE "/vm1/disk.vmdk.desc",
                                 "[ds] " IMAGE "/vm1/data-000001.vmdk.desc"};
    struct ixfs_prepare_request request = a_request(server, disks);
    information = 0;
    expect_prepared(ixfs_prepare(&request));
    EXPECT(information > 0);

    /* To a program that knew no callback, what lies behind its record is no callback. */
    request.size = offsetof(struct ixfs_prepare_request, log_callback);
    information = 0;
    expect_prepared(ixfs_prepare(&request));
    EXPECT(information == 0);

    request.size = offsetof(struct ixfs_prepare_request, port);
    expect_refused(ixfs_prepare(&request));
    request.size = SIZE_MAX;
    expect_refused(ixfs_prepare(&request));
    expect_refused(ixfs_prepare(NULL));
}

int main(int argc, char* argv[])
{
    EXPECT(argc == 2);
    use_numbers();
    use_handles();
    use_views();
    use_mounts(argv[1]);
    use_preparations(argv[1]);
    return 0;
}
