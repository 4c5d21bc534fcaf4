// The control handle.
#ifndef IXFS_CONTROL_H
#define IXFS_CONTROL_H

#include "ixfs.h"

#include <atomic>
#include <mutex>

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

struct _ixfs_control_t {
    char magic[8]; // handle_magic; the only mark of a valid handle
    void* log_context;
    ixfs_log_callback log_callback;
    ixfs_job_log_callback job_log_callback;
    void* job_log_context;
    int flags;
    _ixfs_mount_t* mount;
    _ixfs_view_t* views; // the latest first
    _ixfs_name_group_t* name_groups;
    ec_status last_status;

    // A validation thread may outlive both the unmount and ixfs_term. So the memory goes with its
    // last user (the caller, and each mount record that still exists), and the thread calls back
    // only under the gate, and only until the handle was terminated.
    std::atomic<int> users;
    std::mutex thread_callback_gate;
    bool terminated;
};

constexpr char handle_magic[] = "IxFsCtL";

void control_retain(_ixfs_control_t* handle);
void control_release(_ixfs_control_t* handle);

#endif
