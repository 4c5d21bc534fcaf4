#include "unwatched_mounts.h"

#include "record_view.h"

#include <ace/Base_Thread_Adapter.h>

namespace
{

// Shows what a thread's function was to be called with.
struct Start : ACE_Base_Thread_Adapter {
    static void* argument(const ACE_Base_Thread_Adapter* start) { return start->*(&Start::arg_); }
};

} // namespace

int UnwatchedMounts::refuse(const ACE_Base_Thread_Adapter* start)
{
    stop_events_.emplace_back(
        static_cast<ACE_Event*>(record_view::stop_event(Start::argument(start))));
    return EAGAIN;
}
