// Faults in unmounts, by ixfs_unmount and by ixfs_term.
#include "mounted_image_faults.h"

namespace
{

using namespace interpose;

class UnmountFaults : public MountedImageFaults
{
protected:
    using MountedImageFaults::MountedImageFaults;
    UnmountFaults() : MountedImageFaults("plain") {}

    void arrange() override
    {
        MountedImageFaults::arrange();
        EXPECT_EQ(mount(), EC_OK);
    }

    int act() override { return ixfs_unmount(handle.get()); }
};

const Outcomes before_helper_runs{
    {at_start, EC_SYSTEM_ERROR},
    {stage::has_mutex_to_unmount, makes_no_difference},
};

// Without a helper, the unmount is local.
const FaultCases unmount_faults{
    // a lock that can be neither taken nor closed is there until this process ends
    {semop_has_no_memory(), before_helper_runs, FreeLock::may_be_left},
    {only_once(semop_is_interrupted()), makes_no_difference},    // it is waited for again
    {only_once(semop_finds_set_deleted()), makes_no_difference}, // it is opened again
    {only_once(semop_sees_set_deleted()), makes_no_difference},
    {semctl_finds_set_deleted(), makes_no_difference},
    {set_cannot_be_deleted(), makes_no_difference, FreeLock::may_be_left},
    {memory_is_null(), makes_no_difference}, // a stream does without a buffer
    {fails(on_popen, EMFILE), EC_SYSTEM_ERROR},
    {only_once(fails(on_read, EINTR)), makes_no_difference}, // it is read again
    {fails_when_done(on_pclose, pclose, ECHILD), makes_no_difference},
    {time_fails(), makes_no_difference},
};

// Where memory is short, the mount point stays.
const FaultCases removal_faults = mount_point_removal_faults + mount_table_faults +
                                  FaultCases{{memory_throws(), makes_no_difference}};

// No answer counts as success.
const FaultCases lost_answer{
    {fails(on_read, EIO), makes_no_difference},
};

TEST_F(UnmountFaults, LeaveNothingBehind)
{
    sweep(unmount_faults + lost_answer);
}

class UnmountOfAPathFaults : public UnmountFaults
{
protected:
    UnmountOfAPathFaults() : UnmountFaults("tells-path") {}
};

TEST_F(UnmountOfAPathFaults, LeaveNothingBehind)
{
    sweep(unmount_faults + lost_answer + removal_faults);
}

class FailingUnmountFaults : public UnmountFaults
{
protected:
    FailingUnmountFaults() : UnmountFaults("fails-unmount") {}
};

TEST_F(FailingUnmountFaults, LeaveNothingBehind)
{
    sweep(unmount_faults + removal_faults +
          FaultCases{
              {fails(on_read, EIO),
               {{stage::runs_unmount, EC_OK, MountedImage::is_left},
                {stage::has_exit_status, makes_no_difference}}},
              {fails(on_umount2, EBUSY), {{at_start, makes_no_difference, MountedImage::is_left}}},
              {fails(on_umount2, EPERM), {{at_start, makes_no_difference, MountedImage::is_left}}},
          });
}

class TermFaults : public UnmountFaults
{
protected:
    void arrange() override
    {
        UnmountFaults::arrange();
        for (int i = 0; i < 2; ++i) {
            char base_name[1024];
            _ixfs_view_t* const view = _ixfs_view_create(handle.get());
            EXPECT_EQ(_ixfs_view_lock(handle.get(), view, 1, base_name, sizeof(base_name)), 1);
        }
    }

    int act() override
    {
        handle.reset();
        return 0;
    }

    void serve() override
    {
        handle = silent_handle();
        UnmountFaults::serve();
    }
};

TEST_F(TermFaults, LeaveNothingBehind)
{
    FaultCases cases = unmount_faults + lost_answer;
    for (FaultCase& term : cases)
        term.outcomes = makes_no_difference; // it tells nothing
    sweep(cases);
}

} // namespace
