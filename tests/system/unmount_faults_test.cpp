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

// What comes before the helper can say anything. Without a helper, the unmount is local.
const FaultCases unmount_faults{
    {fails(on_semget, EACCES), {EC_OK}},
    // a lock that can be neither taken nor closed is there until this process ends
    {semop_has_no_memory(), {EC_OK, EC_SYSTEM_ERROR}, {Leftover::free_lock}},
    {semop_is_interrupted(), {EC_SYSTEM_ERROR}},
    {only_once(semop_finds_set_deleted()), {EC_OK}},
    {only_once(semop_sees_set_deleted()), {EC_OK}},
    {semctl_finds_set_deleted(), {EC_OK}},
    {set_cannot_be_deleted(), {EC_OK}, {Leftover::free_lock}},
    {fails(on_allocation, ENOMEM), {EC_OK, EC_SYSTEM_ERROR}},
    {fails(on_popen, EMFILE), {EC_SYSTEM_ERROR}},
    {fails(on_read, EIO), {EC_OK}, {Leftover::mount}}, // no answer counts as success
    {only_once(fails(on_read, EINTR)), {EC_OK}},       // for good, it is read for good
    {fails_when_done(on_pclose, pclose, ECHILD), {EC_OK}},
    {time_fails(), {EC_OK}},
};

TEST_F(UnmountFaults, LeaveNothingBehind)
{
    sweep(unmount_faults);
}

class UnmountOfAPathFaults : public UnmountFaults
{
protected:
    UnmountOfAPathFaults() : UnmountFaults("tells-path") {}
};

TEST_F(UnmountOfAPathFaults, LeaveNothingBehind)
{
    sweep(unmount_faults + mount_point_removal_faults(EC_OK));
}

class FailingUnmountFaults : public UnmountFaults
{
protected:
    FailingUnmountFaults() : UnmountFaults("fails-unmount") {}
};

TEST_F(FailingUnmountFaults, LeaveNothingBehind)
{
    FaultCases cases = unmount_faults + mount_point_removal_faults(EC_HELPER_FAILED);
    for (FaultCase& unmount : cases)
        unmount.results.insert(EC_HELPER_FAILED);
    cases.push_back({fails(on_umount2, EBUSY), {EC_HELPER_FAILED}, {Leftover::mount}});
    cases.push_back({fails(on_umount2, EPERM), {EC_HELPER_FAILED}, {Leftover::mount}});
    sweep(cases);
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
    FaultCases cases = unmount_faults;
    for (FaultCase& term : cases)
        term.results = {0}; // it tells nothing
    sweep(cases);
}

} // namespace
