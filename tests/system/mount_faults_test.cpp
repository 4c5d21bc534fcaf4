// Faults in mounts and in the recreation of their context.
#include "mounted_image_faults.h"

namespace
{

using namespace interpose;

// The record of a mount, and the mutex.
const FaultCases record_faults{
    // is opened, or waited for, again
    {only_once(semop_is_interrupted()), makes_no_difference},
    {only_once(semop_finds_set_deleted()), makes_no_difference},
    {only_once(semctl_finds_set_deleted()), makes_no_difference},
};

const FaultCases mutex_faults{
    {for_good(fails(on_semget, ENOSPC)), EC_SYSTEM_ERROR, FreeLock::may_be_left},
    {only_once(fails(on_semget, ENOSPC)), EC_SYSTEM_ERROR, FreeLock::may_be_left},
    {for_good(fails(on_semget, EACCES)), EC_SYSTEM_ERROR, FreeLock::may_be_left},
    {only_once(fails(on_semget, EACCES)), EC_SYSTEM_ERROR, FreeLock::may_be_left},
    {for_good(semop_has_no_memory()), EC_SYSTEM_ERROR, FreeLock::may_be_left},
    {only_once(semop_has_no_memory()), EC_SYSTEM_ERROR, FreeLock::may_be_left},
    {for_good(semctl_finds_set_deleted()), EC_SYSTEM_ERROR},
};

// The cases, where nothing that fails behind that line makes a difference.
FaultCases and_nothing_behind(const char* line, FaultCases cases)
{
    for (FaultCase& fault_case : cases)
        fault_case.outcomes.push_back({line, makes_no_difference});
    return cases;
}

const FaultCases deleted_mutex_faults{
    {only_once(semop_sees_set_deleted()), makes_no_difference},
};

// What every mount goes through, the one that comes to nothing too.
const FaultCases mount_faults =
    record_faults + FaultCases{
                        {memory_throws(),
                         {{stage::has_mutex_to_mount, EC_MOUNT_DIRECTORY},
                          {stage::has_mount_directory, makes_no_difference}}},
                        {mutex_has_no_memory(), EC_SYSTEM_ERROR},
                        {fails(on_mkdir, EACCES), EC_MOUNT_DIRECTORY},
                        {fails(on_mkdir, ENOSPC), EC_MOUNT_DIRECTORY},
                        {fails_when_done(on_pclose, pclose, ECHILD), makes_no_difference},
                        {time_fails(), makes_no_difference},
                    };

const FaultCases record_memory_faults{
    {memory_is_null(), {{at_start, EC_NO_MEMORY}, {stage::runs_mount, makes_no_difference}}},
};

// Of a record that takes the mount path from the helper's answers.
const FaultCases path_record_memory_faults{
    {memory_is_null(),
     {{at_start, EC_NO_MEMORY},
      {stage::runs_mount, makes_no_difference},
      {stage::has_mount_path, EC_NO_MEMORY},
      {stage::has_mount_point, makes_no_difference}}},
};

const FaultCases helper_start_faults{
    {fails(on_popen, EMFILE), EC_SYSTEM_ERROR},
};

// And what only one that succeeds does. Where the helper's answer is lost, nobody knows of its
// mount.
FaultCases success_faults(const std::string& server)
{
    return deleted_mutex_faults +
           FaultCases{
               // the helper finds no directory
               {fails_where(on_mkdir, EEXIST, is_about(server)), EC_HELPER_FAILED},
               {fails_where(on_mkdir, EEXIST, unless(is_about(server))), makes_no_difference},
               {only_once(fails(on_mkdir, ETIME)), makes_no_difference}, // there are 100 calls
               {for_good(fails(on_mkdir, ETIME)), EC_HELPER_FAILED},
               {fails(on_read, EIO),
                {{stage::has_mount_directory, makes_no_difference}, // the mount table's
                 {stage::runs_mount, EC_SYSTEM_ERROR, MountedImage::is_left},
                 {stage::has_mount_point, makes_no_difference}}},
               {only_once(fails(on_read, EINTR)), makes_no_difference}, // it is read again
           };
}

const FaultCases watching_faults{
    {fails(on_pthread_create, EAGAIN), makes_no_difference}, // the mount goes unwatched
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
    sweep(mount_faults + mount_table_faults + mutex_faults + record_memory_faults +
          helper_start_faults + success_faults(image.server) + watching_faults);
}

class ValidatedMountFaults : public MountFaults
{
protected:
    ValidatedMountFaults() : MountFaults("tells-path") {}
};

TEST_F(ValidatedMountFaults, LeaveNothingBehind)
{
    sweep(mount_faults + mount_table_faults + mutex_faults + path_record_memory_faults +
          helper_start_faults + success_faults(image.server) + watching_faults +
          FaultCases{
              {fails(on_stat, EIO), EC_HELPER_FAILED},
              {fails(on_stat, ETIME), EC_HELPER_FAILED},
          });
}

class BusyMountFaults : public MountFaults
{
protected:
    BusyMountFaults() : MountFaults("busy") {}
};

TEST_F(BusyMountFaults, LeaveNothingBehind)
{
    sweep(mount_faults + mount_table_faults + mutex_faults + record_memory_faults +
          helper_start_faults +
          FaultCases{
              {fails(on_read, EIO), makes_no_difference}, // nothing is mounted either way
              {only_once(sleep_is_interrupted()), makes_no_difference},
          });
}

// A mount that is dead is unmounted again within the call. What fails there is logged alone.
class DeadMountFaults : public MountFaults
{
protected:
    DeadMountFaults() : MountFaults("empty") {}
};

TEST_F(DeadMountFaults, LeaveNothingBehind)
{
    sweep(mount_faults + mount_table_faults +
          and_nothing_behind(stage::has_mutex_to_mount, mutex_faults) + path_record_memory_faults +
          and_nothing_behind(stage::finds_mount_dead, helper_start_faults) +
          success_faults(image.server) + mount_point_removal_faults +
          FaultCases{
              {fails(on_stat, EIO), makes_no_difference},
              {set_cannot_be_deleted(), makes_no_difference, FreeLock::may_be_left},
          });
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
    sweep(record_faults + mutex_faults + deleted_mutex_faults +
          FaultCases{
              {memory_is_null(), EC_NO_MEMORY},
              {mutex_has_no_memory(), EC_SYSTEM_ERROR},
          });
}

} // namespace
