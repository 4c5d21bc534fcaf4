// What a handle knows of its mount: the caller's arguments, checked and copied, and then what the
// helper reported.
#ifndef IXFS_MOUNT_RECORD_H
#define IXFS_MOUNT_RECORD_H

#include "bounded_text.h"
#include "ixfs.h"
#include "log.h"
#include "mount_mutex.h"
#include "mount_table.h"
#include "mount_watch.h"
#include "owned_text.h"
#include "zero_filled.h"

// Where the helper mounts: each server has a directory in it.
inline constexpr char mount_base[] = "/usr/varnis/var/ixfs";

// Everything that it holds ends with it; see _ixfs_mount_delete. The order of the fields is fixed.
struct _ixfs_mount_t : ZeroFilled {
    _ixfs_control_t* control;    // the handle that owns it
    char mount_point[text_size]; // as the helper reported it; empty until then
    int timeout;                 // seconds, 60 at most
    MountMutex mutex;
    OwnedText server;
    int port;
    OwnedText mount_cred;
    OwnedText unmount_cred;
    OwnedText mnt_path; // null until the helper reports it
    ACE_Event* event;   // the watch's stop event; null without a watch
    int thread_result;  // 0 once the validation thread was started, else -1

    MountWatchPtr watch; // null, or shared with the validation thread, which may end later
    MountTable before{}; // what was mounted before the helper ran
};

// The caller's arguments that a mount and a minimal context have in common.
struct ConnectionArguments {
    const char* mount_cred;
    const char* unmount_cred;
    int port;
    const char* server;
    unsigned int timeout; // seconds
};

// Attaches a new record with the checked and copied arguments to a handle that has no mount.
// Returns it, or null after logging why and recording it on the handle.
_ixfs_mount_t* attach_mount_record(_ixfs_control_t* handle, const Log& log,
                                   const ConnectionArguments& arguments);

extern "C" {
// Frees a mount record with all that it owns, and tells its validation thread to stop. A mount
// mutex that it holds is deleted: see MountMutex. Of an inherited handle's record only memory goes;
// what it shares with the validation thread stays. Null is accepted. Logs nothing. The handle's
// thread.
//
// The handle still points to the record: see _ixfs_no_mount, which does both.
IXFS_API void _ixfs_mount_delete(_ixfs_mount_t* record);
}

#endif
