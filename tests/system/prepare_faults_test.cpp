// Faults in whole preparations of a VM.
#include "mounted_image_faults.h"

#include "ixfs_vmir.h"

#include <string>
#include <vector>

#include <unistd.h>

namespace
{

using namespace interpose;

class PrepareFaults : public FaultSweep
{
protected:
    void arrange() override
    {
        rmdir(image.mount_point.c_str()); // each run makes it anew
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
            EXPECT_TRUE(!image.has_view() || threw(result));
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
    LogInfo log_info_{nullptr, OutcomeFinder::callback};
    std::string config_;
    std::vector<std::string> out_;
};

// Lines that tell how far the preparation has come.
constexpr char has_mounted[] = "INF - mount point - ";
constexpr char finds_config[] = "INF - Reading VM Config file from: ";
constexpr char has_opened_config[] = "INF - Size reported by stat: ";
constexpr char has_read_config[] = "INF - Size after striping padding: ";
constexpr char tries_view_lock[] = "INF - Trying to create mutex: ";
constexpr char has_view_lock[] = "INF - Successfully created mutex: ";
constexpr char makes_view_folder[] = "INF - base_name: /usr/varnis/var/ixfs/plain/";
constexpr char has_folder[] = "INF - Successfully created directory: ";
constexpr char finds_file[] = "INF - SUCCESS ACE_OS::access(";
constexpr char has_made_file[] = "INF - Created ";
constexpr char has_copied_descriptor[] = "INF - Created new .desc file: ";
constexpr char has_linked_data[] = "INF - Created link file: ";
using stage::begins_unmount, stage::has_mount_directory, stage::has_mount_point,
    stage::has_mutex_to_mount, stage::runs_mount;

const auto is_mount_table = is_about("mountinfo");

// Only a configuration is waited for, and what is to be made need not be there.
Outcomes not_found(int config_result)
{
    return {
        {finds_config, config_result},      {has_view_lock, makes_no_difference},
        {has_folder, EC_FILE_NOT_FOUND},    {finds_file, makes_no_difference},
        {has_made_file, EC_FILE_NOT_FOUND},
    };
}

const Outcomes folder_not_made{{at_start, EC_MOUNT_DIRECTORY},
                               {has_mounted, EC_FOLDER_NOT_CREATED}};

const Outcomes helper_not_started{{at_start, EC_SYSTEM_ERROR}, {has_mounted, makes_no_difference}};

const Outcomes mount_lock_not_had{
    {at_start, EC_SYSTEM_ERROR},
    {has_mutex_to_mount, makes_no_difference},
};

const Outcomes locks_not_had{
    {at_start, EC_SYSTEM_ERROR},
    {has_mutex_to_mount, makes_no_difference},
    {tries_view_lock, EC_VIEW_NOT_LOCKED},
    {has_view_lock, makes_no_difference},
};

Outcomes short_of_memory(int folder_result)
{
    return {
        {has_mutex_to_mount, EC_MOUNT_DIRECTORY},
        {has_mount_directory, makes_no_difference},
        {has_mounted, threw_bad_alloc},
        {makes_view_folder, folder_result},
        {has_folder, threw_bad_alloc},
    };
}

// How often a handle, whose making logs nothing, asks for memory.
int allocations_of_handle()
{
    Trigger never(0, Trigger::Mode::once);
    FaultClock clock;
    const ArmedFault armed = memory_is_null().arm(never, clock);
    const Handle handle = silent_handle();
    return never.calls();
}

FaultCases memory_faults()
{
    const int of_handle = allocations_of_handle();
    return {
        {at_first(memory_is_null(), of_handle), EC_NO_HANDLE},
        {later(memory_is_null(), of_handle),
         {{at_start, EC_NO_MEMORY},
          {runs_mount, makes_no_difference},
          {has_read_config, EC_VIEW_NOT_CREATED},
          {tries_view_lock, makes_no_difference}}},
        {only_once(memory_throws()), short_of_memory(EC_FOLDER_NOT_CREATED)},
        {for_good(memory_throws()),
         short_of_memory(threw_bad_alloc)}, // so does the exception's text
        {mutex_has_no_memory(),
         {{at_start, EC_SYSTEM_ERROR}, {tries_view_lock, EC_VIEW_NOT_LOCKED}}},
    };
}

// The view has 50 locks to choose from.
const FaultCases lock_faults{
    {only_once(fails(on_semget, ENOSPC)), mount_lock_not_had, FreeLock::may_be_left},
    {for_good(fails(on_semget, ENOSPC)), locks_not_had, FreeLock::may_be_left},
    {only_once(semop_has_no_memory()), mount_lock_not_had, FreeLock::may_be_left},
    {for_good(semop_has_no_memory()), locks_not_had, FreeLock::may_be_left},
    {only_once(semop_is_interrupted()), makes_no_difference},
    {only_once(semop_finds_set_deleted()), makes_no_difference},
    {only_once(semop_sees_set_deleted()), makes_no_difference},
    {only_once(semctl_finds_set_deleted()), makes_no_difference},
    {for_good(semctl_finds_set_deleted()), locks_not_had},
    {set_cannot_be_deleted(), makes_no_difference, FreeLock::may_be_left},
};

const FaultCases mount_faults{
    {fails(on_setlocale, 0), makes_no_difference},
    {fails(on_popen, EMFILE), helper_not_started},
    {fails_when_done(on_pclose, pclose, ECHILD), makes_no_difference},
    {fails(on_pthread_create, EAGAIN), makes_no_difference},
    {time_fails(), makes_no_difference},
    // the helper then finds no directory, and the view's files have none
    {fails_where(on_mkdir, EEXIST, is_about("plain")),
     {{at_start, EC_HELPER_FAILED}, {has_mounted, makes_no_difference}}},
    {fails_where(on_mkdir, EEXIST, is_about("_vmir")), EC_FILE_NOT_COPIED},
    {for_good(fails(on_mkdir, ETIME)),
     {{at_start, EC_HELPER_FAILED}, {has_mounted, EC_FILE_NOT_COPIED}}},
    {only_once(fails(on_mkdir, ETIME)), makes_no_difference},
    {fails(on_mkdir, EACCES), folder_not_made},
    {fails(on_mkdir, ENOSPC), folder_not_made},
};

// The helper's answers, the configuration, which is first opened and read for nothing, and the
// disks' descriptors. Each file is opened twice, for a look and for reading.
const FaultCases reading_faults{
    {fails(on_read, EIO),
     {{has_mount_directory, makes_no_difference}, // the mount table's
      {runs_mount, EC_SYSTEM_ERROR, MountedImage::is_left},
      {has_mount_point, makes_no_difference},
      {has_opened_config, EC_FILE_NOT_READ},
      {has_read_config, EC_FILE_NOT_COPIED},
      {begins_unmount, makes_no_difference}}},
    {only_once(fails(on_read, EINTR)), makes_no_difference},
    {fails_where(on_open, EMFILE, is_mount_table), makes_no_difference},
    {at_first(only_once(fails_where(on_open, EMFILE, unless(is_mount_table))), 2),
     makes_no_difference},
    {at_first(for_good(fails_where(on_open, EMFILE, unless(is_mount_table))), 2),
     EC_FILE_NOT_OPENED},
    {later(fails_where(on_open, EMFILE, unless(is_mount_table)), 2),
     {{finds_config, EC_FILE_NOT_OPENED}, {has_read_config, EC_FILE_NOT_COPIED}}},
    {fails(on_close, EIO), makes_no_difference},
};

// The first look is for the read that nobody depends on. What is not known for a plain file is not
// read. A data link is looked at when it is made.
const FaultCases look_faults{
    {at_first(only_once(fails(on_stat, EIO))), makes_no_difference},
    {at_first(for_good(fails(on_stat, EIO))), EC_FILE_NOT_OPENED},
    {later(fails(on_stat, EIO)),
     {{finds_config, EC_FILE_NOT_OPENED},
      {has_read_config, EC_FILE_NOT_COPIED},
      {has_copied_descriptor, makes_no_difference},
      {has_linked_data, EC_FILE_NOT_COPIED}}},
};

// The mount point and the image folder are opened for the configuration, which is waited for, and
// stay open. The view folder is opened where it is needed.
const FaultCases folder_faults{
    {only_once(fails_where(on_opendir, EMFILE, is_about("plain"))), makes_no_difference},
    {for_good(fails_where(on_opendir, EMFILE, is_about("plain"))), EC_FILE_NOT_FOUND},
    {only_once(fails_where(on_opendir, EMFILE, is_about("1700000000"))), makes_no_difference},
    {for_good(fails_where(on_opendir, EMFILE, is_about("1700000000"))), EC_FILE_NOT_FOUND},
    {only_once(fails_where(on_opendir, EMFILE, is_about("_vmir"))), makes_no_difference},
    {fails_where(on_opendir, EMFILE, is_about("vm")), EC_FILE_NOT_FOUND},
};

const FaultCases config_faults{
    {fails(on_seek, EIO), EC_FILE_NOT_READ},
    {only_once(fails(on_access, ETIME)), makes_no_difference},
    {for_good(fails(on_access, ETIME)), not_found(EC_FILE_NOT_FOUND)},
    {only_once(fails(on_access, ENOENT)), not_found(makes_no_difference)},
    {for_good(fails(on_access, ENOENT)), not_found(EC_FILE_NOT_FOUND)},
    {only_once(fails(on_access, EACCES)), not_found(makes_no_difference)},
    {for_good(fails(on_access, EACCES)), not_found(EC_FILE_NOT_FOUND)},
    {only_once(fails(on_access, EIO)), not_found(makes_no_difference)},
    {for_good(fails(on_access, EIO)), not_found(EC_FILE_NOT_FOUND)},
};

const FaultCases view_faults{
    {fails(on_uname, EFAULT), EC_VIEW_NOT_LOCKED},
    {fails(on_getrandom, ENOSYS), threw_entropy_error},
    {only_once(fails(on_getrandom, EINTR)), makes_no_difference},
    {fails_where(on_open, ENOSPC, is_to_write), EC_FILE_NOT_COPIED},
    {fails(on_write, ENOSPC), EC_FILE_NOT_COPIED},
    {fails(on_link, EEXIST), EC_SYSTEM_ERROR}, // EPERM reads as success
    {fails(on_link, EMLINK), EC_SYSTEM_ERROR},
    {fails(on_link, EXDEV), EC_SYSTEM_ERROR},
    {fails(on_link, ETIME), EC_SYSTEM_ERROR},
};

TEST_F(PrepareFaults, LeaveNothingBehind)
{
    sweep(memory_faults() + lock_faults + mount_faults + reading_faults + look_faults +
          folder_faults + config_faults + view_faults);
}

} // namespace
