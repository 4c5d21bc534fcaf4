// The control handle.
#ifndef IXFS_CONTROL_H
#define IXFS_CONTROL_H

#include "callback_gate.h"
#include "ixfs.h"
#include "this_process.h"
#include "zero_filled.h"

struct _ixfs_mount_t;

// Names grouped on a handle. Nothing adds any at present; ixfs_term frees what is there. All text
// and nodes are malloc'ed.
struct _ixfs_name_t {
    char* name;
    _ixfs_name_t* next;
};

struct _ixfs_name_group_t {
    char* name;
    _ixfs_name_t* names;
    _ixfs_name_group_t* next;
};

// Clients reach a handle through functions only, but the order of its fields is fixed, as that of
// every record: the product's other libraries know it.
struct _ixfs_control_t : ZeroFilled {
    char magic[8]; // handle_magic; the only mark of a valid handle
    void* log_context;
    ixfs_log_callback log_callback;
    ixfs_job_log_callback job_log_callback;
    void* job_log_context;
    int flags;
    _ixfs_mount_t* mount; // null, or the one mount; owned
    _ixfs_view_t* views;  // the latest first; owned
    _ixfs_name_group_t* name_groups;
    ec_status last_status;

    CallbackGatePtr gate;  // how the handle's validation threads reach log_callback
    ProcessIdentity maker; // the process that made it
};

// Whether a valid handle was made by another process, of which this one is a fork. What such a
// handle holds is the other's: the mount, the locks, the validation thread. It is ended by freeing
// memory, and serves for nothing else. Any lock in it may be locked for good, by a thread that was
// not copied.
//
// The fork may have come while a thread was at work on the handle. So the library takes whatever it
// frees out of the handle first.
bool is_inherited(const _ixfs_control_t* handle);

extern "C" {
// Records a failed mount: deletes the handle's mount record, if any, and sets the last status. Does
// not unmount. `handle` must be valid; of an inherited one only the record goes. Logs nothing. The
// handle's thread.
IXFS_API void _ixfs_no_mount(_ixfs_control_t* handle, ec_status status);
}

#endif
