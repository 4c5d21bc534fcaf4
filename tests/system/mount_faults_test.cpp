// Faults in mounts and in the recreation of their context.
#include "mounted_image_faults.h"

namespace
{

using namespace interpose;

// The record of a mount, and the mutex.
const FaultCases record_faults{
    // a set that was made, and then could not be opened, waits for its next user
    {fails(on_semget, ENOSPC), {EC_OK, EC_SYSTEM_ERROR}, {Leftover::free_lock}},
    {fails(on_semget, EACCES), {EC_OK, EC_SYSTEM_ERROR}, {Leftover::free_lock}},
    {semop_has_no_memory(), {EC_OK, EC_SYSTEM_ERROR}, {Leftover::free_lock}},
    {semop_is_interrupted(), {EC_SYSTEM_ERROR}},
    {semctl_finds_set_deleted(), {EC_OK, EC_SYSTEM_ERROR}},
};

const FaultCases deleted_mutex_faults{
    {only_once(semop_finds_set_deleted()), {EC_OK}}, // for good, ACE never ends to open it again
    {only_once(semop_sees_set_deleted()), {EC_OK}},
};

// What every mount goes through, the one that comes to nothing too.
const FaultCases mount_faults =
    record_faults +
    FaultCases{
        // the record, the folder's path, the mutex, popen
        {fails(on_allocation, ENOMEM), {EC_OK, EC_NO_MEMORY, EC_SYSTEM_ERROR, EC_MOUNT_DIRECTORY}},
        {fails(on_mkdir, EACCES), {EC_MOUNT_DIRECTORY}},
        {fails(on_mkdir, ENOSPC), {EC_MOUNT_DIRECTORY}},
        {fails(on_popen, EMFILE), {EC_SYSTEM_ERROR}},
    };

// And what only one that succeeds does. Where the helper's answer is lost, nobody knows of its
// mount.
const FaultCases success_faults =
    deleted_mutex_faults +
    FaultCases{
        {fails(on_mkdir, EEXIST), {EC_OK, EC_HELPER_FAILED}}, // the helper finds no directory
        {fails(on_mkdir, ETIME), {EC_OK, EC_HELPER_FAILED}},
        {fails(on_read, EIO), {EC_OK, EC_SYSTEM_ERROR}, {Leftover::mount}},
        {only_once(fails(on_read, EINTR)), {EC_OK}}, // for good, it is read for good
        {fails_when_done(on_pclose, pclose, ECHILD), {EC_OK}},
        {time_fails(), {EC_OK}},
    };

const FaultCases watching_faults{
    {fails(on_pthread_create, EAGAIN), {EC_OK}},
};

class MountFaults : public MountedImageFaults
{
protected:
    using MountedImageFaults::MountedImageFaults;
    MountFaults() : MountedImageFaults("plain") {}

    int act() override { return mount(); }

    void take_back(int result) override
    {
        if (result == EC_OK) {
            EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
        }
    }
};

TEST_F(MountFaults, LeaveNothingBehind)
{
    sweep(mount_faults + success_faults + watching_faults);
}

class ValidatedMountFaults : public MountFaults
{
protected:
    ValidatedMountFaults() : MountFaults("tells-path") {}
};

TEST_F(ValidatedMountFaults, LeaveNothingBehind)
{
    sweep(mount_faults + success_faults + watching_faults +
          FaultCases{
              {fails(on_stat, EIO), {EC_HELPER_FAILED}},
              {fails(on_stat, ETIME), {EC_HELPER_FAILED}},
          });
}

class BusyMountFaults : public MountFaults
{
protected:
    BusyMountFaults() : MountFaults("busy") {}
};

TEST_F(BusyMountFaults, LeaveNothingBehind)
{
    sweep(mount_faults + FaultCases{
                             {only_once(semop_finds_set_deleted()), {EC_SYSTEM_ERROR}},
                             {fails(on_read, EIO), {EC_SYSTEM_ERROR}},
                             {fails_when_done(on_pclose, pclose, ECHILD), {EC_SYSTEM_ERROR}},
                             {time_fails(), {EC_SYSTEM_ERROR}},
                             {only_once(sleep_is_interrupted()), {EC_SYSTEM_ERROR}},
                         });
}

// A mount that is dead is unmounted again within the call.
class DeadMountFaults : public MountFaults
{
protected:
    DeadMountFaults() : MountFaults("empty") {}
};

TEST_F(DeadMountFaults, LeaveNothingBehind)
{
    FaultCases cases = mount_faults + success_faults + mount_point_removal_faults(EC_OK);
    cases.push_back({fails(on_stat, EIO), {EC_OK}});
    cases.push_back({set_cannot_be_deleted(), {EC_OK}, {Leftover::free_lock}});
    for (FaultCase& mount : cases) {
        mount.results.erase(EC_OK);
        mount.results.insert(EC_HELPER_FAILED);
    }
    sweep(cases);
}

class ContextFaults : public MountedImageFaults
{
protected:
    ContextFaults() : MountedImageFaults("plain") {}

    int act() override
    {
        const int result = ixfs_recreate_minimal_context(
            handle.get(), "mount-secret", "unmount-secret", 1, image.server.c_str(), 0, "/m/x");
        return result == 0 ? EC_OK : ixfs_last_error(handle.get());
    }

    void take_back(int result) override
    {
        if (result == EC_OK) {
            EXPECT_EQ(ixfs_unmount(handle.get()), EC_INVALID_PARAMETER);
        }
    }
};

TEST_F(ContextFaults, LeaveNothingBehind)
{
    sweep(record_faults + deleted_mutex_faults +
          FaultCases{
              {fails(on_allocation, ENOMEM), {EC_NO_MEMORY, EC_SYSTEM_ERROR}},
          });
}

} // namespace
