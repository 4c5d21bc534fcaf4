/* What programs have compiled in that use ixfs.h: numbers, records and signatures. A line here that
 * no longer compiles means that such programs break. */
#include <ixfs.h>

#include "interface_assertions.h"

/* ---- Numbers -------------------------------------------------------------------------------- */

ASSERT_VALUE(EC_OK, 0);
ASSERT_VALUE(EC_FOLDER_NOT_CREATED, 1);
ASSERT_VALUE(EC_NO_MEMORY, 10);
ASSERT_VALUE(EC_SYSTEM_ERROR, 11);
ASSERT_VALUE(EC_FILE_NOT_OPENED, 12);
ASSERT_VALUE(EC_FILE_NOT_READ, 13);
ASSERT_VALUE(EC_FILE_NOT_COPIED, 14);
ASSERT_VALUE(EC_INVALID_PARAMETER, 20);
ASSERT_VALUE(EC_SERVER_BUSY, 25);
ASSERT_VALUE(EC_HELPER_FAILED, 29);
ASSERT_VALUE(EC_MOUNT_DIRECTORY, 35);
ASSERT_VALUE(EC_VIEW_NOT_CREATED, 36);
ASSERT_VALUE(EC_NO_HANDLE, 103);
ASSERT_VALUE(EC_FILE_NOT_FOUND, 142);
ASSERT_VALUE(EC_VIEW_NOT_LOCKED, 158);
ASSERT_VALUE(EC_INVALID_SCHEDULE, 223);
ASSERT_VALUE(EC_ALREADY_MOUNTED, 226);
ASSERT_VALUE(EC_STATUS_LOWEST, INT32_MIN);
ASSERT_VALUE(EC_STATUS_HIGHEST, INT32_MAX);
ASSERT_SIZE(ec_status, 4);
ASSERT_THAT((ec_status)-1 < (ec_status)0);

ASSERT_VALUE(IXFS_VERSION_MAKE(1, 2, 3), 1002003);
ASSERT_VALUE(IXFS_VERSION_MAJOR, 1);
#if IXFS_VERSION_NUMBER < IXFS_VERSION_MAKE(1, 0, 0)
#error "the preprocessor can't compare versions"
#endif

ASSERT_VALUE(IXFS_LOG_ERR, 0);
ASSERT_VALUE(IXFS_LOG_WRN, 1);
ASSERT_VALUE(IXFS_LOG_INF, 2);

ASSERT_VALUE(IXFS_FLAG_UNMOUNT_CRED, 0x1);
ASSERT_VALUE(IXFS_FLAG_VIEW_ID, 0x10);
ASSERT_VALUE(IXFS_FLAG_NEW_DISK_UUID, 0x200);

/* ---- Records -------------------------------------------------------------------------------- */

typedef void* any_pointer;
typedef any_pointer two_pointers[2];
typedef any_pointer four_pointers[4];
typedef uint64_t two_words[2];
typedef uint64_t three_words[3];
typedef ACE_Process_Mutex* lock_pointer;
typedef _ixfs_image_list_t* image_pointer;
typedef _ixfs_image_list_metadata_t* metadata_pointer;
typedef _file_name_link_mapping_t* mapping_pointer;
typedef _ixfs_view_t* view_pointer;

ASSERT_FIELD(_ixfs_image_list_t, data, three_words, 0);
ASSERT_FIELD(_ixfs_image_list_t, next, image_pointer, 24);
ASSERT_SIZE(_ixfs_image_list_t, 32);

ASSERT_FIELD(_ixfs_image_list_metadata_t, owned, two_pointers, 0);
ASSERT_FIELD(_ixfs_image_list_metadata_t, next, metadata_pointer, 16);
ASSERT_SIZE(_ixfs_image_list_metadata_t, 24);

ASSERT_FIELD(_file_name_link_mapping_t, owned, four_pointers, 0);
ASSERT_FIELD(_file_name_link_mapping_t, data, two_words, 32);
ASSERT_FIELD(_file_name_link_mapping_t, next, mapping_pointer, 48);
ASSERT_SIZE(_file_name_link_mapping_t, 56);

ASSERT_FIELD(_ixfs_view_t, lock, lock_pointer, 0);
ASSERT_FIELD(_ixfs_view_t, lock_held, bool, 8);
ASSERT_FIELD(_ixfs_view_t, reserved_state, int32_t, 12);
ASSERT_FIELD(_ixfs_view_t, image_list, image_pointer, 16);
ASSERT_FIELD(_ixfs_view_t, image_list_metadata, metadata_pointer, 24);
ASSERT_FIELD(_ixfs_view_t, file_name_mapping, mapping_pointer, 32);
ASSERT_FIELD(_ixfs_view_t, prev, view_pointer, 40);
ASSERT_FIELD(_ixfs_view_t, next, view_pointer, 48);
ASSERT_SIZE(_ixfs_view_t, 56);

ASSERT_SIZE(g_lc_time, 256);
ASSERT_THAT(HAS_TYPE(&g_lc_time[0], char*));

/* ---- Signatures ----------------------------------------------------------------------------- */

typedef void (*log_callback)(int, const char*, const char*);
typedef void (*job_log_callback)(void*, int, int, int, int, int, const char*, ...);

ASSERT_THAT(HAS_TYPE((ixfs_log_callback)0, log_callback));
ASSERT_THAT(HAS_TYPE((ixfs_job_log_callback)0, job_log_callback));

ASSERT_FUNCTION(ixfs_status_text, const char*, (int));
ASSERT_FUNCTION(ixfs_version, const char*, (void));

ASSERT_FUNCTION(ixfs_init, _ixfs_control_t*,
                (int, void*, ixfs_log_callback, ixfs_job_log_callback, void*));
ASSERT_FUNCTION(_ixfs_is_invalid, int, (const _ixfs_control_t*));
ASSERT_FUNCTION(ixfs_last_error, ec_status, (const _ixfs_control_t*));
ASSERT_FUNCTION(ixfs_term, void, (_ixfs_control_t*));

ASSERT_FUNCTION(_ixfs_log, void, (_ixfs_control_t*, const char*, int, const char*, ...));
ASSERT_FUNCTION(_ixfs_server_log, void, (_ixfs_control_t*, const char*, int, const char*, ...));

ASSERT_FUNCTION(ixfs_mount, char*,
                (_ixfs_control_t*, const char*, const char*, int, const char*, unsigned int,
                 const char*));
ASSERT_FUNCTION(ixfs_unmount, ec_status, (_ixfs_control_t*));
ASSERT_FUNCTION(ixfs_recreate_minimal_context, int,
                (_ixfs_control_t*, const char*, const char*, int, const char*, unsigned int,
                 const char*));

ASSERT_FUNCTION(_ixfs_file_exists, int, (_ixfs_control_t*, const char*));
ASSERT_FUNCTION(_ixfs_folder_create, int,
                (_ixfs_control_t*, const char*, const char*, uint32_t*, mode_t));
ASSERT_FUNCTION(_ixfs_create_hard_link, int, (_ixfs_control_t*, const char*, const char*));
ASSERT_FUNCTION(_ixfs_folder_delete, int, (_ixfs_control_t*, const char*));
ASSERT_FUNCTION(_ixfs_copy_desc, int, (_ixfs_control_t*, const char*, const char*, const char*));

ASSERT_FUNCTION(_ixfs_view_create, _ixfs_view_t*, (_ixfs_control_t*));
ASSERT_FUNCTION(_ixfs_view_delete, void, (_ixfs_control_t*, _ixfs_view_t*));
ASSERT_FUNCTION(_ixfs_view_lock, int, (_ixfs_control_t*, _ixfs_view_t*, long, char*, size_t));
ASSERT_FUNCTION(_ixfs_image_list_free, void, (_ixfs_image_list_t*));
ASSERT_FUNCTION(_ixfs_image_list_metadata_free, void, (_ixfs_image_list_metadata_t*));
#ifdef __cplusplus
ASSERT_FUNCTION(_ixfs_image_file_name_mapping_free, void, (_file_name_link_mapping_t*));
#endif
