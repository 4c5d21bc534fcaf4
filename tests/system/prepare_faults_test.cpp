// Faults in whole preparations of a VM.
#include "fault_image.h"
#include "fault_sweep.h"

#include "ixfs_vmir.h"

#include <string>
#include <vector>

namespace
{

using namespace interpose;

class PrepareFaults : public FaultSweep
{
protected:
    void arrange() override
    {
        config_.clear();
        out_.assign(1, "kept");
    }

    int act() override
    {
        return ixfs_prepare_vmir(creds_, entries_, &log_info_, config_, out_, true);
    }

    void take_back(int result) override
    {
        if (result == EC_OK) {
            expect_success();
        } else {
            EXPECT_EQ(out_, std::vector<std::string>{"kept"});
            EXPECT_TRUE(!image.has_view() || threw(result) || excuses(Leftover::view));
        }
        image.expect_unchanged();
    }

    const FaultImage image{"plain"};

private:
    void expect_success() const
    {
        std::vector<std::string> expected{"kept"};
        expected.insert(expected.end(), image.disks_in_view.begin(), image.disks_in_view.end());
        EXPECT_EQ(out_, expected);
        EXPECT_EQ(config_, image.config);
        image.expect_view();
    }

    const MountCreds creds_{
        image.server.c_str(), 1, 0, 3, nullptr, "mount-secret", "unmount-secret", image.backup_id};
    std::vector<std::string> entries_ = image.disks;
    LogInfo log_info_{nullptr, [](int, const char*, const char*) {
                      }};
    std::string config_;
    std::vector<std::string> out_;
};

const std::set<int> short_of_memory{
    EC_OK,
    EC_NO_HANDLE,
    EC_NO_MEMORY,
    EC_SYSTEM_ERROR,
    EC_MOUNT_DIRECTORY,
    EC_FILE_NOT_OPENED,
    EC_FILE_NOT_READ,
    EC_FILE_NOT_COPIED,
    EC_FOLDER_NOT_CREATED,
    EC_VIEW_NOT_CREATED,
    EC_VIEW_NOT_LOCKED,
    threw_bad_alloc,
};

const FaultCases prepare_faults{
    {fails(on_allocation, ENOMEM), short_of_memory, {Leftover::view}}, // opendir() wants some, too
    // the mount
    {fails(on_setlocale, 0), {EC_OK}},
    {fails(on_semget, ENOSPC), {EC_OK, EC_SYSTEM_ERROR, EC_VIEW_NOT_LOCKED}, {Leftover::free_lock}},
    {semop_has_no_memory(), {EC_OK, EC_SYSTEM_ERROR, EC_VIEW_NOT_LOCKED}, {Leftover::free_lock}},
    {semop_is_interrupted(), {EC_OK, EC_SYSTEM_ERROR}},
    {only_once(semop_finds_set_deleted()), {EC_OK}},
    {only_once(semop_sees_set_deleted()), {EC_OK}},
    {semctl_finds_set_deleted(), {EC_OK, EC_SYSTEM_ERROR, EC_VIEW_NOT_LOCKED}},
    {set_cannot_be_deleted(), {EC_OK}, {Leftover::free_lock}},
    {fails(on_popen, EMFILE), {EC_OK, EC_SYSTEM_ERROR}},
    {fails_when_done(on_pclose, pclose, ECHILD), {EC_OK}},
    {fails(on_pthread_create, EAGAIN), {EC_OK}},
    {time_fails(), {EC_OK}},
    // the configuration
    {fails(on_seek, EIO), {EC_FILE_NOT_READ}},
    {fails(on_stat, EIO), {EC_OK}},
    // files of the mount, the configuration and the view
    {fails(on_access, ETIME), {EC_OK, EC_FILE_NOT_FOUND}},
    {fails(on_access, ENOENT), {EC_OK, EC_FILE_NOT_FOUND}},
    {fails(on_access, EACCES), {EC_OK, EC_FILE_NOT_FOUND}},
    {fails(on_access, EIO), {EC_OK, EC_FILE_NOT_FOUND}},
    {fails(on_mkdir, EACCES), {EC_MOUNT_DIRECTORY, EC_FOLDER_NOT_CREATED}},
    {fails(on_mkdir, ENOSPC), {EC_MOUNT_DIRECTORY, EC_FOLDER_NOT_CREATED}},
    {fails(on_mkdir, EEXIST), {EC_OK, EC_HELPER_FAILED, EC_FILE_NOT_COPIED}},
    {fails(on_mkdir, ETIME), {EC_OK, EC_HELPER_FAILED, EC_FILE_NOT_COPIED}},
    {fails(on_uname, EFAULT), {EC_VIEW_NOT_LOCKED}},
    {fails(on_getrandom, ENOSYS), {threw_entropy_error}},
    {only_once(fails(on_getrandom, EINTR)), {EC_OK}}, // for good, it is asked for good
    // the helper's output, the configuration and the descriptors
    {fails(on_open, EMFILE), {EC_OK, EC_FILE_NOT_OPENED, EC_FILE_NOT_COPIED}},
    {fails(on_open, ENOSPC), {EC_OK, EC_FILE_NOT_OPENED, EC_FILE_NOT_COPIED}},
    {fails(on_read, EIO),
     {EC_OK, EC_SYSTEM_ERROR, EC_FILE_NOT_READ, EC_FILE_NOT_COPIED},
     {Leftover::mount}},
    {only_once(fails(on_read, EINTR)), {EC_OK, EC_FILE_NOT_READ, EC_FILE_NOT_COPIED}},
    {fails(on_write, ENOSPC), {EC_FILE_NOT_COPIED}},
    {fails(on_close, EIO), {EC_OK}},
    {fails(on_link, EEXIST), {EC_SYSTEM_ERROR}}, // EPERM reads as success
    {fails(on_link, EMLINK), {EC_SYSTEM_ERROR}},
    {fails(on_link, EXDEV), {EC_SYSTEM_ERROR}},
    {fails(on_link, ETIME), {EC_SYSTEM_ERROR}},
};

TEST_F(PrepareFaults, LeaveNothingBehind)
{
    sweep(prepare_faults);
}

} // namespace
