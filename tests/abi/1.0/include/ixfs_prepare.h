/* libixfs, VM instant recovery for C: prepare a VM's view in one call.
 *
 * The same as ixfs_prepare_vmir of ixfs_vmir.h, for C and for whatever calls C. The conventions of
 * ixfs.h hold. No C++ exception leaves these functions.
 */
#ifndef IXFS_PREPARE_H
#define IXFS_PREPARE_H

#include "ixfs.h"

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* What to prepare. The caller owns all of it; the library only reads it, during the call. Begin
 * with IXFS_PREPARE_REQUEST_INIT and set what is needed:
 *
 *     struct ixfs_prepare_request request = IXFS_PREPARE_REQUEST_INIT;
 *     request.server = "media1";
 *
 * Later versions may add members at the end. `size` tells which the caller knows: members that do
 * not lie within it count as 0 or null, and a size beyond what the library knows is refused. */
struct ixfs_prepare_request {
    size_t size;              /* of this struct, in bytes; IXFS_PREPARE_REQUEST_INIT sets it */
    const char* server;       /* media server name */
    const char* mount_cred;   /* for the mount command */
    const char* unmount_cred; /* for the unmount command */
    const char* backup_id;    /* "<client>_<time>" */
    const char* const* disks; /* the disks' descriptors in datastore form, such as
                                 "[<datastore>] backups/<...>/<disk>.vmdk.desc" */
    size_t disk_count;        /* how many; with 0, `disks` may be null */
    int port;                 /* 1 or more */
    int schedule_type;        /* 0 full; 1 or 4 incremental */
    unsigned int timeout;     /* seconds to try again while the server is too busy; at most 60 are
                                 used, 0 means one try; see ixfs_mount */
    int new_disk_uuids;       /* not 0: give each descriptor copy a disk UUID of its own */
    ixfs_log_callback log_callback; /* null: no lines */
};

/* What came of it. The library owns the record and all that it points to, until
 * ixfs_prepare_result_free. */
struct ixfs_prepare_result {
    ec_status status;            /* EC_OK, or why it failed */
    const char* error;           /* what happened, in words, after a failure; null for EC_OK */
    const char* configuration;   /* the VM configuration, up to its first NUL, and a NUL behind it;
                                    never null. After a failure all of it, a part or nothing */
    size_t configuration_length; /* in bytes, without the NUL at its end */
    const char* const* paths;    /* "[<datastore>] <view folder>/<base>.vmdk" per disk, in their
                                    order, and a null behind the last; never null. After a failure
                                    none */
    size_t path_count;           /* how many, without the null */
};

/* A request with its size set, and all else 0 or null. */
/* clang-format off */
#define IXFS_PREPARE_REQUEST_INIT { sizeof(struct ixfs_prepare_request), NULL, NULL, NULL, NULL, NULL, 0, 0, 0, 0, 0, NULL }
/* clang-format on */

/* Prepares a VM for instant recovery, as ixfs_prepare_vmir does: mounts the image, reads the VM
 * configuration, builds the view, unmounts. All on the calling thread, with the same log lines, and
 * with the same waiting: without a limit while another mount or unmount of the host is in progress.
 *
 * Returns the result, which the caller gives to ixfs_prepare_result_free. Null only if there is no
 * memory for the record itself; then nothing was done or logged.
 *
 * The status is that of ixfs_prepare_vmir, or one of these. `error` tells which:
 *   EC_INVALID_PARAMETER  also for a request that is null or whose size is wrong, and for a server,
 *                         credential, backup id, list of disks or disk that is null. Nothing was
 *                         done or logged
 *   EC_NO_MEMORY          also wherever ixfs_prepare_vmir throws std::bad_alloc
 *   EC_FILE_NOT_READ      also for an absurd size of the configuration file
 *   EC_SYSTEM_ERROR       also if no disk UUID can be drawn
 * What the call leaves behind is what ixfs_prepare_vmir leaves: the view after EC_OK; after the last
 * three perhaps a half-built view, which the next preparation uses again. The unmount is always
 * tried; only the log shows a failed one.
 *
 * Any thread; several at once. */
IXFS_API struct ixfs_prepare_result* ixfs_prepare(const struct ixfs_prepare_request* request);

/* Frees a result with all that it points to. Null is accepted. Logs nothing. Any thread. */
IXFS_API void ixfs_prepare_result_free(struct ixfs_prepare_result* result);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
