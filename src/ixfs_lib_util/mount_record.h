// The mount record: what a handle knows of its mount, from the caller's arguments to the validation
// thread's end.
#ifndef IXFS_MOUNT_RECORD_H
#define IXFS_MOUNT_RECORD_H

#include "bounded_text.h"
#include "ixfs.h"

#include <ace/Event.h>

#include <atomic>

struct _ixfs_mount_t {
    _ixfs_control_t* control;
    char mount_point[text_size]; // as the helper reported it; empty until then
    int timeout;                 // seconds, 60 at most
    ACE_Process_Mutex* mutex;    // the mount mutex; owned
    bool mutex_held;
    char* server; // owned, as all that follow
    int port;
    char* mount_cred;
    char* unmount_cred;
    char* mnt_path;    // null until the helper reports it
    ACE_Event* event;  // stops the validation thread; never freed, its insides with the record
    int thread_result; // of starting the thread; 0 when it runs

    // The thread's own: written before it starts, and shared until it ends, which may be long after
    // the unmount. So the memory goes with its last user, the handle or the thread.
    char watched_mount_point[text_size];
    std::atomic<int> users;
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
// Returns it, or null after logging under `tag` and recording why on the handle.
_ixfs_mount_t* attach_mount_record(_ixfs_control_t* handle, const char* tag,
                                   const ConnectionArguments& arguments);

// Gives the record its mutex object and waits for the mutex. Returns whether it is held; else the
// failure was logged under `tag` and recorded, and the record is gone.
bool take_new_mount_mutex(_ixfs_control_t* handle, const char* tag, _ixfs_mount_t* record);

// Waits for the mutex of a record that has the object. Returns whether it is held. Logs nothing.
bool acquire_mount_mutex(_ixfs_mount_t* record);
void release_mount_mutex(_ixfs_mount_t* record);

void mount_record_retain(_ixfs_mount_t* record);
void mount_record_release(_ixfs_mount_t* record);

#endif
