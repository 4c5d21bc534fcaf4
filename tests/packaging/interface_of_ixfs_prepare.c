/* What programs have compiled in that use ixfs_prepare.h: records and signatures. A line here that
 * no longer compiles means that such programs break. New members come at the end only. */
#include <ixfs_prepare.h>

#include "interface_assertions.h"

typedef const char* text;
typedef const char* const* texts;

/* ---- Records -------------------------------------------------------------------------------- */

ASSERT_FIELD(struct ixfs_prepare_request, size, size_t, 0);
ASSERT_FIELD(struct ixfs_prepare_request, server, text, 8);
ASSERT_FIELD(struct ixfs_prepare_request, mount_cred, text, 16);
ASSERT_FIELD(struct ixfs_prepare_request, unmount_cred, text, 24);
ASSERT_FIELD(struct ixfs_prepare_request, backup_id, text, 32);
ASSERT_FIELD(struct ixfs_prepare_request, disks, texts, 40);
ASSERT_FIELD(struct ixfs_prepare_request, disk_count, size_t, 48);
ASSERT_FIELD(struct ixfs_prepare_request, port, int, 56);
ASSERT_FIELD(struct ixfs_prepare_request, schedule_type, int, 60);
ASSERT_FIELD(struct ixfs_prepare_request, timeout, unsigned int, 64);
ASSERT_FIELD(struct ixfs_prepare_request, new_disk_uuids, int, 68);
ASSERT_FIELD(struct ixfs_prepare_request, log_callback, ixfs_log_callback, 72);
ASSERT_SIZE(struct ixfs_prepare_request, 80);

ASSERT_FIELD(struct ixfs_prepare_result, status, ec_status, 0);
ASSERT_FIELD(struct ixfs_prepare_result, error, text, 8);
ASSERT_FIELD(struct ixfs_prepare_result, configuration, text, 16);
ASSERT_FIELD(struct ixfs_prepare_result, configuration_length, size_t, 24);
ASSERT_FIELD(struct ixfs_prepare_result, paths, texts, 32);
ASSERT_FIELD(struct ixfs_prepare_result, path_count, size_t, 40);
ASSERT_SIZE(struct ixfs_prepare_result, 48);

/* A request begins like this, in C and in C++. */
extern const struct ixfs_prepare_request request;
const struct ixfs_prepare_request request = IXFS_PREPARE_REQUEST_INIT;
ASSERT_SIZE(request, 80);

/* ---- Signatures ----------------------------------------------------------------------------- */

ASSERT_FUNCTION(ixfs_prepare, struct ixfs_prepare_result*, (const struct ixfs_prepare_request*));
ASSERT_FUNCTION(ixfs_prepare_result_free, void, (struct ixfs_prepare_result*));
