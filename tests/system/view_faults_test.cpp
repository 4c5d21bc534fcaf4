// Faults in the life of a view: its making, its lock, its deletion.
#include "fault_sweep.h"

namespace
{

using namespace interpose;

enum ViewResult { no_view, not_locked, locked };

class ViewFaults : public FaultSweep
{
protected:
    void arrange() override { handle = silent_handle(); }

    int act() override
    {
        char base_name[1024];
        _ixfs_view_t* const view = _ixfs_view_create(handle.get());
        if (view == nullptr)
            return no_view;
        const bool success =
            _ixfs_view_lock(handle.get(), view, 4711, base_name, sizeof(base_name)) == 1;
        _ixfs_view_delete(handle.get(), view);
        return success ? locked : not_locked;
    }

    void serve() override
    {
        EXPECT_EQ(act(), locked);
        handle.reset();
    }

    Handle handle;
};

// An attempt that fails is followed by the next one. All 50 fail only where the fault lasts.
const Outcomes lost_attempts{
    {at_start, not_locked},
    {"INF - Successfully created mutex", makes_no_difference},
};

TEST_F(ViewFaults, LeaveNothingBehind)
{
    sweep({
        {memory_is_null(), no_view},
        {mutex_has_no_memory(), not_locked},
        {fails(on_uname, EFAULT), not_locked},
        {only_once(fails(on_semget, ENOSPC)), makes_no_difference},
        {for_good(fails(on_semget, ENOSPC)), not_locked},
        {only_once(fails(on_semget, EACCES)), makes_no_difference},
        {for_good(fails(on_semget, EACCES)), not_locked},
        {only_once(semop_has_no_memory()), makes_no_difference, FreeLock::may_be_left},
        {for_good(semop_has_no_memory()), lost_attempts, FreeLock::may_be_left},
        {only_once(semop_finds_set_deleted()), makes_no_difference},
        {only_once(semop_sees_set_deleted()), makes_no_difference},
        {only_once(semctl_finds_set_deleted()), makes_no_difference},
        {for_good(semctl_finds_set_deleted()), lost_attempts},
        {set_cannot_be_deleted(), makes_no_difference, FreeLock::may_be_left},
    });
}

} // namespace
