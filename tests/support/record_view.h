// What a handle and its mount hold, where nothing in the interface shows it. Of the tests, this
// alone knows how the library keeps it.
#ifndef IXFS_TESTS_RECORD_VIEW_H
#define IXFS_TESTS_RECORD_VIEW_H

#include "ixfs.h"

#include <optional>
#include <string>
#include <vector>

struct _ixfs_mount_t;

// What the library exports for its own kin, and declares in its sources alone.
extern "C" {
void _ixfs_log_init(void);
void _ixfs_mount_delete(_ixfs_mount_t* record);
int _ixfs_mount_validate(_ixfs_control_t* handle, _ixfs_mount_t* record);
void* _ixfs_mount_validate_thread(void* record);
void _ixfs_no_mount(_ixfs_control_t* handle, ec_status status);
void _ixfs_no_unmount(_ixfs_control_t* handle, _ixfs_mount_t* record, ec_status status);
}

namespace record_view
{

extern const std::size_t handle_size; // bytes that a handle takes
extern const std::size_t watch_size;  // bytes that the watch of a mount takes

// Where the fields lie that every version has, in the order in which they must lie.
using Addresses = std::vector<const void*>;
Addresses fields_of_handle(const _ixfs_control_t* handle);
Addresses fields_of_mount(const _ixfs_control_t* handle);

// The eight bytes that mark a valid handle.
char* mark_of(_ixfs_control_t* handle);

// The context that the handle's maker gave beside the log callback.
void* log_context(const _ixfs_control_t* handle);

// The last status, of an invalid handle too.
ec_status last_status(const _ixfs_control_t* handle);

// Gives the handle a group of names.
void add_name_group(_ixfs_control_t* handle, const std::string& name,
                    const std::vector<std::string>& names);

// The handle's mount record; null where it has none.
_ixfs_mount_t* mount_of(const _ixfs_control_t* handle);

inline bool has_mount(const _ixfs_control_t* handle)
{
    return mount_of(handle) != nullptr;
}

// What the record of a handle that has one holds.
struct Mount {
    const _ixfs_control_t* control;
    std::string mount_point;
    int timeout; // seconds
    bool holds_mutex;
    std::string server;
    int port;
    std::string mount_cred;
    std::string unmount_cred;
    std::optional<std::string> mnt_path;
    bool has_event;
    int thread_result;
};

Mount mount(const _ixfs_control_t* handle);

// Makes the handle one that a fork has brought here, and one of this process again.
void set_inherited(_ixfs_control_t* handle, bool inherited);

void set_mount_point(_ixfs_control_t* handle, const std::string& mount_point);
void clear_unmount_cred(_ixfs_control_t* handle);

// Tells the validation thread to stop, as an unmount does. Returns whether that went well.
bool signal_event(_ixfs_control_t* handle);

// What the record of a handle that is watched shares with the validation thread.
const void* watch_of(const _ixfs_control_t* handle);

// The ACE_Event that stops a validation thread that was started with this argument.
void* stop_event(void* thread_argument);

} // namespace record_view

#endif
