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
 */
struct ixfs_prepare_request {
    size_t size;              /* of this struct, in bytes; IXFS_PREPARE_REQUEST_INIT sets it */
    const char* server;       /* media server name */
    const char* mount_cred;   /* for the mount command */
    const char* unmount_cred; /* for the unmount command */
    const char* backup_id;    /* "<client>_<time>" */
    const char* const* disks; /* the disks' descriptors in datastore form */
    size_t disk_count;        /* how many; with 0, `disks` may be null */
    int port;                 /* 1 or more */
    int schedule_type;        /* 0 full; 1 or 4 incremental */
    unsigned int timeout;     /* seconds, at most 60 are used; see ixfs_mount */
    int new_disk_uuids;       /* not 0: give each descriptor copy a disk UUID of its own */
    ixfs_log_callback log_callback; /* null: no lines */
};

/* What came of it. The library owns the record and its texts, until ixfs_prepare_result_free. */
struct ixfs_prepare_result {
    ec_status status;
    const char* error;           /* what happened, in words, after a failure; null for EC_OK */
    const char* configuration;   /* the VM configuration, ended by a NUL; never null */
    size_t configuration_length; /* in bytes, without the NUL at its end */
    const char* const* paths;    /* the view's descriptors in datastore form, in the disks' order,
                                    and a null behind the last; empty after a failure */
    size_t path_count;
};

/* clang-format off */
#define IXFS_PREPARE_REQUEST_INIT { sizeof(struct ixfs_prepare_request), NULL, NULL, NULL, NULL, NULL, 0, 0, 0, 0, 0, NULL }
/* clang-format on */

/* Prepares a VM for instant recovery, as ixfs_prepare_vmir does: mounts, reads the configuration,
 * builds the view, unmounts, all on the calling thread, and logs the same lines.
 *
 * Returns the result, which the caller gives to ixfs_prepare_result_free; null only if there is no
 * memory for it. */
IXFS_API struct ixfs_prepare_result* ixfs_prepare(const struct ixfs_prepare_request* request);

/* Frees a result with its texts. Null is accepted. Any thread. */
IXFS_API void ixfs_prepare_result_free(struct ixfs_prepare_result* result);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif
