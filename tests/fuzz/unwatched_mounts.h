// Mounts without a validation thread, which would cost more than all the rest.
#ifndef IXFS_FUZZ_UNWATCHED_MOUNTS_H
#define IXFS_FUZZ_UNWATCHED_MOUNTS_H

#include "interpose.h"

#include <ace/Event.h>

#include <memory>
#include <vector>

class ACE_Base_Thread_Adapter;

// Lets every thread fail to start. Frees the mounts' stop events in the end, which outlive them on
// purpose and of which there would soon be millions; so it must itself outlive the mounts. Holds
// on_pthread_create.
class UnwatchedMounts
{
private:
    int refuse(const ACE_Base_Thread_Adapter* start);

    std::vector<std::unique_ptr<ACE_Event>> stop_events_;
    decltype(interpose::on_pthread_create)::Hook hook_ = interpose::on_pthread_create(
        [this](pthread_t*, const pthread_attr_t*, void* (*)(void*), void* argument) {
            return std::optional<int>(
                refuse(static_cast<const ACE_Base_Thread_Adapter*>(argument)));
        });
};

#endif
