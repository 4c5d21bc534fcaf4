// libixfs, VM instant recovery: prepare a VM's view in one call, and the path functions that it
// uses.
//
// The conventions of ixfs.h hold. All functions run on the calling thread; calls on different
// threads share no memory. Each function may also throw std::bad_alloc. The message of an
// EcStatusException begins with the function or step that failed.
#ifndef IXFS_VMIR_H
#define IXFS_VMIR_H

#include "ec_status_exception.h"
#include "ixfs.h"
#include "ixfs_uuid.h"
#include "lmf_pathname.h"
#include "lmf_string.h"

#include <set>
#include <string>
#include <vector>

// ---- Prepare ------------------------------------------------------------------------------------

// Where an image is and how to reach it. The caller owns the texts; the library only reads them.
struct MountCreds {
    const char* server;       // media server name
    int port;                 // 1 or more
    int schedule_type;        // 0 full; 1 or 4 incremental
    unsigned int timeout;     // seconds to try again while the server is too busy; at most 60 are
                              // used, 0 means one try; see ixfs_mount
    const char* reserved;     // ignored
    const char* mount_cred;   // for the mount command
    const char* unmount_cred; // for the unmount command
    std::string backup_id;    // "<client>_<time>"
};

// Where log lines go.
struct LogInfo {
    void* log_context;              // kept by the handle, never passed to the callback
    ixfs_log_callback log_callback; // null: no lines
};

// Prepares a VM for instant recovery: mounts the image, reads the VM configuration, builds the view
// folder "_vmir" in the image directory (per disk a rewritten descriptor "<base>.vmdk" and a hard
// link "<base>-flat.vmdk" to its data file), unmounts.
//
//   creds         the image
//   entries       the disks' descriptors in datastore form, such as
//                 "[<datastore>] backups/<...>/<disk>.vmdk.desc"; not changed
//   logInfo       may be null: no lines
//   vmConfig      receives the configuration text, up to its first NUL. After a failure it may
//                 hold the whole text or a part
//   out           "[<datastore>] <view folder>/<base>.vmdk" per disk is appended to it, in the
//                 order of entries; untouched on failure
//   newDiskUuids  gives each descriptor copy a disk UUID of its own
//
// Returns EC_OK, or the status of the first step that failed:
//   EC_NO_HANDLE           no memory; nothing was done or logged
//   a status of ixfs_mount
//   EC_INVALID_PARAMETER   a malformed backup id or disk path; or a list that would mix up disks:
//                          a disk in the view folder, two disks that would share a file name in
//                          the view, a data link in an existing view that is another file than the
//                          disk's data, a descriptor with the name of such a link. Nothing was
//                          changed
//   EC_INVALID_SCHEDULE
//   EC_FILE_NOT_FOUND      no configuration file after three looks, 10 seconds apart; or a disk's
//                          file is missing
//   EC_FILE_NOT_OPENED     the configuration file; also when it is no regular file of the image
//   EC_FILE_NOT_READ       the configuration file; also when it is empty, or grows without end
//   EC_VIEW_NOT_CREATED    no memory for the view
//   EC_VIEW_NOT_LOCKED
//   EC_FOLDER_NOT_CREATED  the view folder; also when something else has its name
//   EC_FILE_NOT_COPIED     a disk's descriptor; also when it is no regular file of the image
//   EC_SYSTEM_ERROR        a disk's link; also when its data is no regular file, or when another
//                          preparation has meanwhile given the link's name to another file
// Throws std::bad_alloc, std::length_error for an absurd size of the configuration file, and what
// drawing a UUID may throw.
//
// Stays in the image, whatever others put there meanwhile: symbolic links are followed as long as
// they stay below the mount point, and only regular files are read or linked. Of the image only the
// view folder is changed.
//
// The view's files stay in the image. An existing view is used again: each descriptor is replaced
// by a new file, links stay. When a disk fails with a status, the whole view folder is removed,
// also one that an earlier call had made; after an exception a half-built one stays. The unmount is
// always tried and the handle always ends, also after an exception. Only the log shows a failed
// unmount.
//
// Waits without a limit while another mount or unmount of the host is in progress. The pauses for
// the configuration file are 20 seconds in all; calls that time out on a slow server are repeated
// up to 100 times each, and there is no limit for the total. Any thread.
IXFS_API ec_status ixfs_prepare_vmir(const MountCreds& creds, std::vector<std::string>& entries,
                                     LogInfo* logInfo, std::string& vmConfig,
                                     std::vector<std::string>& out, bool newDiskUuids);

// ---- One disk's paths ---------------------------------------------------------------------------

// All but the datastore forms are relative to the mount point.
struct VmirPath {
    LmfString datastoreDescPath;     // the caller's entry
    LmfString datastore;             // its front, up to and including "]"
    LmfString originalDescPath;      // descriptor in the image
    LmfString originalVmdkPath;      // data file in the image
    LmfString baseName;              // the disk's name in the view, unique within the VM
    LmfString viewDescPath;          // descriptor in the view
    LmfString viewVmdkPath;          // data link in the view
    LmfString datastoreViewDescPath; // descriptor in the view, in datastore form
};

// Replaces `records` by one per entry, with only datastoreDescPath set (to all of the entry's
// bytes).
IXFS_API void buildVmirPathVectorFromCharArray(std::vector<std::string>& entries,
                                               std::vector<VmirPath>& records);

// Fills the other fields of a record. `usedBaseNames` gets the base name. Throws EcStatusException
// of EC_INVALID_PARAMETER, after a line with severity IXFS_LOG_ERR, for a malformed entry; fields
// already filled stay.
IXFS_API void populateVmirPath(_ixfs_control_t* handle, std::set<LmfString>& usedBaseNames,
                               LmfString& viewPath, VmirPath& record);

// Both of the above for a whole list, with base names unique in list order. The first malformed
// entry ends it; later records have only datastoreDescPath.
IXFS_API void populateVmirPathVector(_ixfs_control_t* handle, std::vector<std::string>& entries,
                                     LmfString& viewPath, std::vector<VmirPath>& records);

// Appends each record's datastoreViewDescPath, up to its first NUL, to `out`. Makes room for as
// many strings as there are records, in all; beyond that `out` grows at its own pace.
IXFS_API void convertVmdkPathsListToCharArrays(const std::vector<VmirPath>& records,
                                               std::vector<std::string>& out);

// Makes `baseName` unique among `usedNames` by appending "(1)", "(2)", ... where it is taken, and
// puts it there. Returns true when it had to be changed. Names differ by case.
IXFS_API bool ensureUniquenessOfBasename(std::set<LmfString>& usedNames, LmfString& baseName);

// ---- Derivation ---------------------------------------------------------------------------------
//
// None logs. Where a function throws, it is EcStatusException of EC_INVALID_PARAMETER, and `out` is
// unchanged.

// The text up to and including the first "]". Throws if there is none.
IXFS_API void buildDatastore(const LmfString& in, LmfString& out);

// The text from the first "backups" after the first "]". Throws where either is missing.
IXFS_API void buildOriginalDescPath(const LmfString& in, LmfString& out);

// The text before the last ".desc". Throws if there is none.
IXFS_API void buildOriginalVmdkPath(const LmfString& in, LmfString& out);

// The last segment before its last ".vmdk.desc", and without a snapshot's suffix: a "-" and the six
// characters after it. Throws where the last segment holds no ".vmdk.desc".
IXFS_API void buildBaseName(const LmfString& in, LmfString& out);

// "<viewPath>/<baseName>.vmdk" and "<viewPath>/<baseName>-flat.vmdk".
IXFS_API void buildViewDescPath(const LmfString& viewPath, const LmfString& baseName,
                                LmfString& out);
IXFS_API void buildViewVmdkPath(const LmfString& viewPath, const LmfString& baseName,
                                LmfString& out);

// "<datastore> <viewDescPath>"
IXFS_API void buildDatastoreViewDescPath(const LmfString& datastore, const LmfString& viewDescPath,
                                         LmfString& out);

// "<base>/<relative>"
IXFS_API LmfPathname convertUnixPathToPlatformPath(const LmfString& base,
                                                   const LmfString& relative);

// ---- The image's layout -------------------------------------------------------------------------

// Splits a backup id "<client>_<time>" at its last underscore. Returns EC_OK, or
// EC_INVALID_PARAMETER after a line with severity IXFS_LOG_ERR when there is no underscore, no
// client, or no decimal 64-bit number at the front of the rest (blanks and a sign before it are
// accepted). If there is an underscore, a failure also changes `client`, and perhaps `backupTime`.
IXFS_API ec_status makeClientAndBackupTime(_ixfs_control_t* handle, const std::string& backupId,
                                           std::string& client, long& backupTime);

// Appends "backups/<client>/allusers/<full|incr>/<time>" to `path`. Throws EcStatusException of
// EC_INVALID_SCHEDULE, after a line with severity IXFS_LOG_ERR, for a schedule type other than 0, 1
// and 4; `path` then keeps what was appended before.
IXFS_API void buildImagePath(_ixfs_control_t* handle, const std::string& client, long backupTime,
                             int scheduleType, LmfPathname& path);

// Sets `path` to the image's VM configuration file under the handle's mount point. Returns EC_OK,
// EC_INVALID_PARAMETER when nothing is mounted (`path` untouched) or EC_INVALID_SCHEDULE (`path`
// ends before the schedule), both after lines with severity IXFS_LOG_ERR.
IXFS_API ec_status buildPathToXml(_ixfs_control_t* handle, const std::string& client,
                                  long backupTime, int scheduleType, LmfPathname& path);

// Sets `viewPath` to the image's view folder, relative to the mount point. Throws what
// buildImagePath throws, and logs one more line.
IXFS_API void buildViewPath(_ixfs_control_t* handle, const std::string& client, long backupTime,
                            int scheduleType, LmfString& viewPath);

#endif
