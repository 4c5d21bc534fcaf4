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

TEST_F(ViewFaults, LeaveNothingBehind)
{
    sweep({
        {fails(on_uname, EFAULT), {not_locked}},
        {fails(on_allocation, ENOMEM), {no_view, not_locked}},
        {fails(on_semget, ENOSPC), {locked, not_locked}}, // there are 50 attempts
        {fails(on_semget, EACCES), {locked, not_locked}},
        {semop_has_no_memory(), {locked, not_locked}, {Leftover::free_lock}},
        {only_once(semop_finds_set_deleted()), {locked}},
        {only_once(semop_sees_set_deleted()), {locked}},
        {semctl_finds_set_deleted(), {locked, not_locked}},
        {set_cannot_be_deleted(), {locked}, {Leftover::free_lock}},
    });
}

} // namespace
