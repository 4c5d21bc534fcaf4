// Watching a mount: what the validation thread may touch, and the thread.
#ifndef IXFS_MOUNT_WATCH_H
#define IXFS_MOUNT_WATCH_H

#include "bounded_text.h"
#include "callback_gate.h"
#include "ixfs.h"
#include "log.h"

#include <ace/Event.h>

struct _ixfs_mount_t;

// All that a validation thread works with. The thread may start late and end late, when mount
// record and handle are gone: nobody waits for it. So the thread shares only this object with them.
// Whichever of record and thread lets go last destroys it.
class MountWatch : public boost::intrusive_ref_counter<MountWatch>
{
public:
    // Returns null, and sets errno, if memory is short.
    static boost::intrusive_ptr<MountWatch> create(CallbackGatePtr gate, const char* mount_point);

    // Frees what the stop event allocated, but not the ACE_Event itself: the record's `event` field
    // is known outside the library, and a pointer taken from it stays valid.
    ~MountWatch();

    MountWatch(const MountWatch&) = delete;
    MountWatch& operator=(const MountWatch&) = delete;

    // Looks into the mount every 300 seconds, and logs that, until stop() is called. What the
    // validation thread does.
    void run();

    // Lets run() return soon. Returns 0, or -1 and sets errno. Any thread.
    int stop() { return stop_event_->signal(); }

    ACE_Event* stop_event() { return stop_event_; }

private:
    MountWatch(CallbackGatePtr gate, ACE_Event* stop_event, const char* mount_point);

    CallbackGatePtr gate_;
    ACE_Event* stop_event_;
    char mount_point_[text_size];
};

using MountWatchPtr = boost::intrusive_ptr<MountWatch>;

// Gives a mounted record its watch and starts its validation thread. Where one cannot be made, that
// is logged and the mount goes unwatched.
void start_mount_watch(_ixfs_mount_t* record, const Log& log);

extern "C" {
// Returns 1 when "backups" can be found in the record's mount point, else 0 and a line with
// severity IXFS_LOG_ERR. 0 without a line when an argument is null. The path that is looked for is
// cut at 1,023 bytes. The handle's thread.
IXFS_API int _ixfs_mount_validate(_ixfs_control_t* handle, _ixfs_mount_t* record);

// Watches a record's mount on the calling thread until the record's stop event is signalled, then
// returns 0; 1 at once when `record` is null, has no watch or is an inherited handle's. The
// validation thread does the same.
IXFS_API void* _ixfs_mount_validate_thread(void* record);
}

#endif
