/* libixfs: mount a stored backup image and build views inside it.
 *
 * What to call, for what:
 *
 *   ixfs_init, ixfs_term, ixfs_last_error, ixfs_status_text     any use
 *   ixfs_version                                                know the library
 *   ixfs_mount, ixfs_unmount                                    read the files of an image
 *   _ixfs_view_... and the file operations                      build a view of your own
 *   ixfs_prepare_vmir, in ixfs_vmir.h                           have the usual view of a VM built
 *   ixfs_prepare, in ixfs_prepare.h                             the same, from C
 *   ixfs_recreate_minimal_context                               join another process's mount
 *   _ixfs_log, _ixfs_server_log                                 add lines to the library's log
 *
 * A leading underscore once meant "internal". Clients may use everything in this header.
 *
 * Conventions for all functions:
 *
 *  1. Handles. Functions take the handle that ixfs_init gave. One thread uses a handle at a time;
 *     different handles may be used on different threads at once. "The handle's thread" below is
 *     the thread that uses the handle at the time.
 *     A handle belongs to the process that made it. In a forked child it is an inherited handle:
 *     ixfs_mount, ixfs_unmount, ixfs_recreate_minimal_context and ixfs_last_error answer as for an
 *     invalid handle, _ixfs_view_lock fails, and none of them logs or records anything. ixfs_term
 *     and _ixfs_view_delete free memory there and wait for nobody; mount, helper and locks stay as
 *     they are. Only what the mount shares with its validation thread stays allocated. All other
 *     functions work as in the parent. A child that was forked in a callback must not return from
 *     it. A child may make handles of its own. fork() waits while another thread makes a handle or
 *     starts the helper.
 *  2. Two styles of failure. ixfs_mount, ixfs_unmount and ixfs_recreate_minimal_context record the
 *     reason in the handle, where ixfs_last_error reads it. The file and view operations do not
 *     set it, and throw only if their comment says so. Their result and the log report failures.
 *  3. Results are not uniform. Existence, lock and copy give 1 for success and 0 for failure;
 *     folder operations give 0 for success and 1 for failure; _ixfs_create_hard_link gives 1 or an
 *     errno. Read the declaration.
 *  4. Ownership. The library copies your text or reads it only during the call; you still own it.
 *     The library owns what it returns, unless the comment says otherwise.
 *  5. Text is bytes, ended by a NUL; whatever the locale, nothing is converted. A log message is
 *     cut at 2,047 bytes. These are cut at 1,023 bytes: command lines, the mount directory on the
 *     helper's command line and in the log (the directory that is made is not cut), the mount
 *     point, the path of its "backups", mutex names, the host's name, and the extent name in a
 *     descriptor. A longer response line of the helper counts as several lines, and so does a
 *     longer line of a descriptor. Other texts and paths are not cut.
 *  6. Quoting. Server name, credentials and mount point go to a shell unquoted. Pass only text that
 *     you trust; see SECURITY.md.
 *  7. The handle's thread and validation threads may call the log callback at the same time. Each
 *     mount has one validation thread, and that of an earlier mount may still run. Only the
 *     handle's thread calls the job-log callback. Callbacks must not throw, and may call nothing
 *     here but _ixfs_log and _ixfs_server_log. Logging never changes errno.
 *  8. A null pointer where none is allowed is a programming error. Functions that refuse a null
 *     handle say so.
 *  9. Failures are logged with severity IXFS_LOG_ERR, unless a declaration says otherwise.
 */
#ifndef IXFS_H
#define IXFS_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

/* Marks what the library exports, and what takes a format as printf does. */
#if defined(__GNUC__)
#define IXFS_API __attribute__((visibility("default")))
#define IXFS_PRINTF(format_position, first_argument)                                               \
    __attribute__((format(printf, format_position, first_argument)))
#else
#define IXFS_API
#define IXFS_PRINTF(format_position, first_argument)
#endif

#ifdef __cplusplus
class ACE_Process_Mutex;
extern "C" {
#else
typedef struct ACE_Process_Mutex ACE_Process_Mutex;
#endif

/* ---- Version -------------------------------------------------------------------------------- */

/* The version of this header, so that a program can be compiled with several:
 *
 *     #if IXFS_VERSION_NUMBER >= IXFS_VERSION_MAKE(1, 1, 0)
 *
 * Minor versions add something, patches do not. What the library itself is, tells ixfs_version. */
#define IXFS_VERSION_MAJOR 1
#define IXFS_VERSION_MINOR 0
#define IXFS_VERSION_PATCH 0
#define IXFS_VERSION_STRING "1.0.0"

/* Versions as numbers that compare as the versions do. Minor and patch are below 1000. */
#define IXFS_VERSION_MAKE(major, minor, patch) (1000000 * (major) + 1000 * (minor) + (patch))
#define IXFS_VERSION_NUMBER                                                                        \
    IXFS_VERSION_MAKE(IXFS_VERSION_MAJOR, IXFS_VERSION_MINOR, IXFS_VERSION_PATCH)

/* ---- Statuses, severities, flags ------------------------------------------------------------ */

/* Numbers shared with the whole product; 32 bits, signed, in C and in C++. */
#ifdef __cplusplus
enum ec_status : int32_t {
#else
enum ec_status {
#endif
    EC_OK = 0,                    /* success */
    EC_FOLDER_NOT_CREATED = 1,    /* the view folder could not be made */
    EC_NO_MEMORY = 10,            /* memory for a mount record or one of its strings */
    EC_SYSTEM_ERROR = 11,         /* mutex, no shell for the helper, hard link, nothing mounted */
    EC_FILE_NOT_OPENED = 12,      /* the VM configuration file could not be opened */
    EC_FILE_NOT_READ = 13,        /* the VM configuration file is empty or could not be read */
    EC_FILE_NOT_COPIED = 14,      /* a disk descriptor could not be copied */
    EC_INVALID_PARAMETER = 20,    /* invalid handle, argument or path */
    EC_SERVER_BUSY = 25,          /* the helper's answer; retried, never recorded */
    EC_HELPER_FAILED = 29,        /* the helper failed, or the new mount holds no backups */
    EC_MOUNT_DIRECTORY = 35,      /* the local mount directory could not be made */
    EC_VIEW_NOT_CREATED = 36,     /* no memory for a view */
    EC_NO_HANDLE = 103,           /* no memory for a handle */
    EC_FILE_NOT_FOUND = 142,      /* the VM configuration file or a disk's file is missing */
    EC_VIEW_NOT_LOCKED = 158,     /* no view lock: 50 attempts failed, no host name, no memory */
    EC_INVALID_SCHEDULE = 223,    /* a schedule type other than 0, 1 and 4 */
    EC_ALREADY_MOUNTED = 226,     /* the handle has a mount */
    EC_STATUS_LOWEST = INT32_MIN, /* keeps the type signed and 32 bits wide in C; never returned */
    EC_STATUS_HIGHEST = INT32_MAX /* likewise */
};
#ifndef __cplusplus
typedef enum ec_status ec_status;
#endif

/* Returns a short text for a status, such as "file not found"; null for a number that is no status
 * of this library. Do not free it. Logs nothing. Any thread. */
IXFS_API const char* ixfs_status_text(int status);

/* Returns the version of the library that the program runs with, such as "1.0.0": three decimal
 * numbers with points between them. Versions with the same first number can stand in for each other,
 * if they are not older than the header that the program was compiled with: IXFS_VERSION_STRING. A
 * program that is linked with the library need not compare them: it does not start with a library
 * that lacks a function that it calls. One that loads the library by itself compares the numbers:
 *
 *     int major, minor, patch;
 *     sscanf(ixfs_version(), "%d.%d.%d", &major, &minor, &patch) == 3 &&
 *         major == IXFS_VERSION_MAJOR &&
 *         IXFS_VERSION_MAKE(major, minor, patch) >= IXFS_VERSION_NUMBER
 *
 * Do not free it. Logs nothing. Any thread. */
IXFS_API const char* ixfs_version(void);

/* Severities of log lines. */
enum {
    IXFS_LOG_ERR = 0, /* an error */
    IXFS_LOG_WRN = 1, /* a warning */
    IXFS_LOG_INF = 2  /* information */
};

/* Flags of a handle. */
enum {
    IXFS_FLAG_UNMOUNT_CRED = 0x1,   /* unmount requires its credential; see ixfs_unmount */
    IXFS_FLAG_VIEW_ID = 0x10,       /* view base names carry the id */
    IXFS_FLAG_NEW_DISK_UUID = 0x200 /* copied descriptors get a fresh ddb.uuid */
};

/* ---- Records -------------------------------------------------------------------------------- */

typedef struct _ixfs_control_t _ixfs_control_t; /* the handle */

/* A node of a view's list, as the two after it. Whoever fills a list allocates the nodes, and what
 * they own, with malloc. */
typedef struct _ixfs_image_list_t {
    uint64_t data[3];                /* the client's; not owned */
    struct _ixfs_image_list_t* next; /* null: the last */
} _ixfs_image_list_t;

/* A node of a view's list. */
typedef struct _ixfs_image_list_metadata_t {
    void* owned[2];                           /* each null or freed with the node */
    struct _ixfs_image_list_metadata_t* next; /* null: the last */
} _ixfs_image_list_metadata_t;

/* A node of a view's list. */
typedef struct _file_name_link_mapping_t {
    void* owned[4];                         /* each null or freed with the node */
    uint64_t data[2];                       /* the client's; not owned */
    struct _file_name_link_mapping_t* next; /* null: the last */
} _file_name_link_mapping_t;

/* A view: a folder of the mounted image in which disks are assembled for one recovery. Belongs to
 * its handle from _ixfs_view_create to _ixfs_view_delete. Clients fill the three lists only. */
typedef struct _ixfs_view_t {
    ACE_Process_Mutex* lock;        /* null, or the view's host-wide lock; owned */
    bool lock_held;                 /* true once `lock` was acquired */
    int32_t reserved_state;         /* 0 */
    _ixfs_image_list_t* image_list; /* owned */
    _ixfs_image_list_metadata_t* image_list_metadata; /* owned */
    _file_name_link_mapping_t* file_name_mapping;     /* owned */
    struct _ixfs_view_t* prev;                        /* nearer the head of the handle's list */
    struct _ixfs_view_t* next;                        /* null: the last */
} _ixfs_view_t;

/* ---- Callbacks ------------------------------------------------------------------------------ */

/* Receives each log line: IXFS_LOG_..., the operation's tag such as "ixfs_mount()", and the
 * message, which carries its own prefix and newline. Both texts are valid during the call only. */
typedef void (*ixfs_log_callback)(int severity, const char* tag, const char* message);

/* Receives lines for the caller's job log, printf style. The integers are always 0, the format
 * always "JBD - %s" with the message as its argument. */
typedef void (*ixfs_job_log_callback)(void* job_log_context, int, int, int, int, int,
                                      const char* format, ...);

/* ---- Handle --------------------------------------------------------------------------------- */

/* Makes a handle.
 *
 * flags             IXFS_FLAG_... bits
 * log_context       stored, never read
 * log_callback      null or the receiver of every line
 * job_log_callback  null or the receiver of job-log lines; called only with a non-null context
 * job_log_context   null or its first argument
 *
 * Returns the handle, which the caller ends with ixfs_term, or null when memory is short. Logs
 * nothing. Records the process's time locale in g_lc_time. Any thread.
 */
IXFS_API _ixfs_control_t* ixfs_init(int flags, void* log_context, ixfs_log_callback log_callback,
                                    ixfs_job_log_callback job_log_callback, void* job_log_context);

/* Returns 1 when `handle` is null or does not begin with a handle's mark, else 0. Do not pass a
 * handle after ixfs_term: its memory is freed. An inherited handle has its mark. Logs nothing. */
IXFS_API int _ixfs_is_invalid(const _ixfs_control_t* handle);

/* Returns the status of the last failure recorded on the handle, EC_OK after ixfs_init, or
 * EC_INVALID_PARAMETER for an invalid or inherited handle. A success does not clear it, and reading
 * does not clear it; only ixfs_unmount with nothing mounted does. Logs nothing. The handle's
 * thread. */
IXFS_API ec_status ixfs_last_error(const _ixfs_control_t* handle);

/* Ends a handle: deletes its views (which releases their locks), unmounts, frees it. An invalid
 * handle is left alone. The files of a view stay in the image. An inherited handle is only freed,
 * with its views: nothing is unmounted, unlocked, waited for or logged.
 *
 * If there is a mount, ixfs_term does what ixfs_unmount does. It waits and logs in the same way,
 * and the status is lost. Call ixfs_unmount first if the result matters. With nothing mounted,
 * nothing is logged.
 *
 * Does not wait for the end of the validation thread, even if that hangs in the mounted file
 * system. If that thread is in your callback, ixfs_term waits until the callback returns.
 * Afterwards no callback of this handle is called. So hold no lock here that your callback takes.
 * Call it on the handle's thread; do not use the handle afterwards.
 */
IXFS_API void ixfs_term(_ixfs_control_t* handle);

/* ---- Logging -------------------------------------------------------------------------------- */

/* Formats a line and hands it to the handle's log callback, if there is one. For programs that
 * use a handle and want their own lines in the same log.
 *
 * handle    not null; not otherwise checked
 * tag       handed to the callback as it is
 * severity  IXFS_LOG_...
 * format    as of printf; the message is cut at 2,047 bytes. Write the prefix and the newline
 *           yourself
 *
 * Allocates nothing and keeps errno. Any number of threads at once, from ixfs_init until ixfs_term.
 */
IXFS_API void _ixfs_log(_ixfs_control_t* handle, const char* tag, int severity, const char* format,
                        ...) IXFS_PRINTF(4, 5);

/* The same, and then hands the line to the job log too, as "JBD - %s", when both the job-log
 * callback and its context are set. */
IXFS_API void _ixfs_server_log(_ixfs_control_t* handle, const char* tag, int severity,
                               const char* format, ...) IXFS_PRINTF(4, 5);

/* The name of the time category's locale at the last ixfs_init; "C" if it could not be read. Do not
 * read it while another thread is in ixfs_init. */
IXFS_API extern char g_lc_time[256];

/* ---- Mounting ------------------------------------------------------------------------------- */

/* Mounts a server's backup image on /usr/varnis/var/ixfs/<server> through the mount helper.
 *
 * mount_cred    for the mount command; not empty
 * unmount_cred  for the later unmount command; not empty
 * port          1 or more
 * server        media server name, not empty; becomes a directory name
 * timeout       seconds to try again while the server is too busy; more than 60 is taken as 60, and
 *               0 means: one try. Does not end a helper that hangs
 * reserved      ignored
 *
 * Waits without a time limit for the host-wide mount mutex, which every mount and unmount of the
 * host holds while its helper runs. The longest waiter is next. Returns the local mount point,
 * which the library owns until ixfs_unmount or ixfs_term. A thread then looks every 300 seconds
 * whether the mount still holds "backups", and logs it.
 *
 * What counts as mounted, where the helper has reported a mount point:
 *   with a mount path     a mount that holds "backups", whatever the helper's exit status
 *   without a mount path  exit status 0, or none at all; or the server was too busy for the whole
 *                         timeout. The log then says that the time is over, and ixfs_mount still
 *                         returns the mount point
 *
 * Returns null on failure, with the reason in ixfs_last_error:
 *   EC_ALREADY_MOUNTED    the handle has a mount; it stays
 *   EC_NO_MEMORY
 *   EC_INVALID_PARAMETER  an argument
 *   EC_SYSTEM_ERROR       the mutex; no shell for the helper; the helper reported no mount point,
 *                         as when the server was too busy for the whole timeout
 *   EC_MOUNT_DIRECTORY    the mount directory could not be made
 *   EC_HELPER_FAILED      the helper's exit status; or a mount without "backups", which is
 *                         unmounted again
 * An invalid or inherited handle: null, nothing recorded or logged. All other failures are logged
 * with severity IXFS_LOG_ERR. Two have IXFS_LOG_INF: no memory for the mutex object, and a mount
 * directory that cannot be made.
 *
 * After a failure other than EC_ALREADY_MOUNTED the handle has no mount. The mount directory stays
 * on disk. Two mounts are undone, as ixfs_unmount does it: one without "backups", and one whose
 * mount path could not be copied for lack of memory. What a helper mounted before it failed stays
 * mounted. The handle's thread.
 */
IXFS_API char* ixfs_mount(_ixfs_control_t* handle, const char* mount_cred, const char* unmount_cred,
                          int port, const char* server, unsigned int timeout, const char* reserved);

/* Ends the handle's mount. Whatever it returns, the handle has no mount afterwards.
 *
 * Tells the validation thread to stop, without waiting for it; waits without a time limit for the
 * mount mutex; runs the helper's forced unmount. What follows depends on the mount path:
 *
 *   the helper had reported one at the mount  whatever it reports now, the mount point directory is
 *                                             removed with its content
 *   it had reported none                      if it reports a failure now, other than a busy
 *                                             server, the library unmounts by force itself and
 *                                             removes the directory likewise; else it does nothing
 *                                             more
 *
 * If the mutex cannot be had, or no shell can be started for the helper, the library unmounts by
 * force itself and removes the directory, with a mount path and without.
 *
 * The directory stays if a file system is still mounted there, if it lies in a file system that
 * came since the mount began, such as one that the helper mounted and that is still there, or if
 * this cannot be found out. A mount point that is no absolute path is neither unmounted nor removed
 * by the library. A line with severity IXFS_LOG_ERR says so.
 *
 * Returns
 *   EC_OK                 the helper reported success; or no exit status at all, as when it is
 *                         missing or crashes; or any, when it had reported a mount path at the
 *                         mount: then it runs once only; or the server stayed too busy for the
 *                         mount's timeout. So the mount may still be there. Also when nothing was
 *                         mounted; only this clears the last status
 *   EC_INVALID_PARAMETER  invalid or inherited handle; no mount point, as after
 *                         ixfs_recreate_minimal_context; no unmount credential, with
 *                         IXFS_FLAG_UNMOUNT_CRED
 *   EC_SYSTEM_ERROR       the mutex; no shell for the helper
 *   EC_HELPER_FAILED      any other exit status
 * A failure becomes the last status and is logged with severity IXFS_LOG_ERR; an invalid handle is
 * not logged. An inherited handle is neither logged nor written to, and keeps its copy of the
 * record. Two lines of every unmount have that severity, too. With IXFS_FLAG_UNMOUNT_CRED the log
 * shows a shortened command line; assume that it shows the credential all the same. An invalid
 * handle that is not null is written to; do not pass one. The handle's thread.
 */
IXFS_API ec_status ixfs_unmount(_ixfs_control_t* handle);

/* Attaches a mount record to a handle without running the helper, once no mount or unmount of the
 * host is in progress (it waits for that without a time limit).
 *
 * Call it when another process made a mount and will end it, and your process works in it. It makes
 * sure that the other's mount or unmount is over, and stores the connection in the handle. The
 * handle learns no mount point, so it neither watches nor unmounts that mount.
 *
 * First six arguments as in ixfs_mount. mnt_path: the mount path the helper once reported; may be
 * empty, not null.
 *
 * Returns 0, with the last status unchanged. -1 for an invalid or inherited handle (nothing
 * recorded), for EC_ALREADY_MOUNTED and for the failures that ixfs_mount shares;
 * EC_INVALID_PARAMETER for a null mnt_path, after which the incomplete record stays in the handle;
 * EC_NO_MEMORY when it cannot be copied. Failures are logged as by ixfs_mount. The handle's thread.
 *
 * The record has no mount point, so a later ixfs_unmount frees it, logs and returns
 * EC_INVALID_PARAMETER.
 */
IXFS_API int ixfs_recreate_minimal_context(_ixfs_control_t* handle, const char* mount_cred,
                                           const char* unmount_cred, int port, const char* server,
                                           unsigned int timeout, const char* mnt_path);

/* ---- Files ---------------------------------------------------------------------------------- */

/* For clients that build a view of their own in a mounted image. A path is absolute or relative to
 * the working directory; to work in an image, begin it with the mount point. The handle is used for
 * logging and for its flags; it needs no mount. The handle's thread. */

/* Returns 1 when `path` exists and can be read by this process, else 0. An access that fails with
 * ETIME, as on a mounted image whose server is slow, is tried up to 100 times, at once. Logs
 * success with severity IXFS_LOG_INF, a missing file not at all, any other failure with
 * IXFS_LOG_ERR. */
IXFS_API int _ixfs_file_exists(_ixfs_control_t* handle, const char* path);

/* Creates every missing directory of `folder_name` below `base_name`, like mkdir -p.
 *
 * base_name    an existing directory. Missing segments of it are made, too, except the first one
 *              ("/usr" of "/usr/varnis"). Below "/" every segment is made
 * folder_name  relative path of one or more segments
 * segments     caller's counter, raised by one for each segment that was created, was there, or was
 *              given up; the first segment of the full path counts only below "/"
 * mode         passed to mkdir, for all that are made; the umask applies
 *
 * Returns 0, or 1 when a directory could not be made; those made before it stay. What else has the
 * name of the last one, such as a file, counts as a directory that was there. A mkdir that fails
 * with ETIME is tried up to 100 times, at once, and then skipped without a line. If the directory
 * is missing, the mkdir of the next segment fails and is logged; after the last segment nothing
 * is. All lines have severity IXFS_LOG_INF, that of a failure too. errno is left as the last failed
 * mkdir set it. If memory is short, the call fails with errno ENOMEM and without a line.
 */
IXFS_API int _ixfs_folder_create(_ixfs_control_t* handle, const char* base_name,
                                 const char* folder_name, uint32_t* segments, mode_t mode);

/* Makes `new_path` a hard link to `existing`. Returns 1, or the errno of the failed link, logged
 * with severity IXFS_LOG_ERR. EPERM is 1 too: a file system without hard links reads as success
 * here. */
IXFS_API int _ixfs_create_hard_link(_ixfs_control_t* handle, const char* existing,
                                    const char* new_path);

/* Removes a directory and all below it, however deep. Symbolic links below `path` are removed,
 * never followed, also if somebody exchanges folders for links meanwhile. A folder below it that is
 * the root of a mounted file system is left alone, and so is one of which that cannot be found out;
 * a line says so.
 *
 * Returns 0, or 1 when something could not be removed; what was removed before stays removed. In
 * each folder the work stops at the first file that cannot be removed. Logs each removal with
 * IXFS_LOG_INF; failures, and each folder found, with IXFS_LOG_ERR. If memory is short, the call
 * fails without a line. If a folder cannot be read to its end, nothing says so; if something is
 * left in it, its removal fails, and that is logged. If somebody moves a folder meanwhile, the work
 * may end there. `path` itself may be a mount; if it is a symbolic link, the call fails.
 */
IXFS_API int _ixfs_folder_delete(_ixfs_control_t* handle, const char* path);

/* Copies a VMware disk descriptor, pointing it at another data file.
 *
 * old_path, new_path  two different files; the new one is created or overwritten. One of several
 *                     hard links is replaced, so that the others keep their content; a symbolic
 *                     link is followed
 * extent_name         name of the data file, written as it stands into the extent line; cut at
 *                     1,023 bytes. A null name is written as printf writes it
 *
 * The extent line is the first that begins with "RW ". It must hold " VMFS "; else the copy ends
 * there. With IXFS_FLAG_NEW_DISK_UUID each "ddb.uuid " line gets a fresh UUID. Rewritten lines end
 * in CR LF; all others are copied byte for byte, up to a NUL. A line of more than 1,023 bytes
 * counts as several lines.
 *
 * Returns 1 when the extent line is rewritten and the flush reports no error, else 0; a partial
 * file stays. An error that the file system reports only at the close is not seen. Failures are
 * logged with IXFS_LOG_ERR. Throws only what drawing a UUID may throw.
 */
IXFS_API int _ixfs_copy_desc(_ixfs_control_t* handle, const char* old_path, const char* new_path,
                             const char* extent_name);

/* ---- Views ---------------------------------------------------------------------------------- */

/* For clients that build a view of their own: create the record, lock it, make the folder and its
 * files with the file operations, and delete the record when nobody works on the view any more. */

/* Makes a view record, not yet locked, at the head of the handle's list; the handle owns it.
 * Returns it, or null with a line of severity IXFS_LOG_ERR when memory is short. The handle's
 * thread. */
IXFS_API _ixfs_view_t* _ixfs_view_create(_ixfs_control_t* handle);

/* Unlinks a view from the handle's list, gives up its lock (which deletes the lock for the whole
 * host), frees its lists and the record. Nothing happens when either argument is null. Logs
 * nothing. The view's folder and files stay. Of an inherited handle's view only memory is freed;
 * the lock stays as it is. The handle's thread. */
IXFS_API void _ixfs_view_delete(_ixfs_control_t* handle, _ixfs_view_t* view);

/* Gives a view a base name and holds a host-wide lock for it until the view is deleted.
 *
 * view       one of the handle's
 * id         part of the lock's name, and with IXFS_FLAG_VIEW_ID of the base name
 * base_name  receives "_vv_<host>[_<id>]" and the number of the attempt, 0 to 49, that got the
 *            lock; cut to the buffer, and ended by a NUL. After a failure it lacks the number, or
 *            is untouched where the host has no name
 * size       of the buffer, in bytes; 1 or more
 *
 * Does not wait for who holds a lock: each attempt tries the next number. It waits only while
 * another process opens or closes the same lock. An attempt that fails logs a line of severity
 * IXFS_LOG_WRN and removes the lock that it failed on, even when another process holds it. A name
 * whose key is that of the mount mutex is passed over: no such line, nothing removed. For root, a
 * lock that another user created is none: it is deleted and made anew. Returns 1, or 0 with a line
 * of severity IXFS_LOG_ERR; for an inherited handle 0 without a line, and base_name untouched. The
 * line with the host's name has this severity, too, but is not a failure.
 *
 * After a failure a view without a lock still has none. A view that already has a lock keeps it,
 * tries no other, and gets number 0. It keeps it also if the host has no name. The handle's thread.
 */
IXFS_API int _ixfs_view_lock(_ixfs_control_t* handle, _ixfs_view_t* view, long id, char* base_name,
                             size_t size);

/* Free a list of a view with what its nodes own. A null head is accepted. Log nothing. */
IXFS_API void _ixfs_image_list_free(_ixfs_image_list_t* head);
IXFS_API void _ixfs_image_list_metadata_free(_ixfs_image_list_metadata_t* head);

#ifdef __cplusplus
} /* extern "C" */

/* As the two above; C++ linkage. */
IXFS_API void _ixfs_image_file_name_mapping_free(_file_name_link_mapping_t* head);
#endif

#endif
