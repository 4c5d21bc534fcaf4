#include "image_test.h"
#include "interpose.h"
#include "memory_shortage.h"
#include "view_lock_test.h"

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace
{

namespace fs = std::filesystem;

using Strings = std::vector<std::string>;

Line failed_view_line(int status)
{
    return {IXFS_LOG_ERR, "create_view_vmir",
            "ERR - Create view for VM Instant Recovery has failed: " + std::to_string(status) +
                ".\n"};
}

class ViewCreation : public ImageTest
{
protected:
    std::string in_datastore(const std::string& name) const { return "[ds] " + view_path(name); }

    // That a call came to nothing before there was a folder, and touched none.
    void expect_no_folder_touched()
    {
        EXPECT_FALSE(fs::exists(view_folder));
        EXPECT_EQ(out, Strings{});
    }
};

// ---- Success ------------------------------------------------------------------------------------

TEST_F(ViewCreation, NoDisksMakeAnEmptyFolder)
{
    out = {"earlier"};
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(image_lines(), config_lines() + lock_lines() + new_folder_lines());
    EXPECT_EQ(view_names(), Strings{});
    EXPECT_EQ(out, Strings{"earlier"});
}

TEST_F(ViewCreation, NoDisksAndAnExistingFolder)
{
    mount_point.make_folder(image_path + "/_vmir");
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(image_lines(), config_lines() + lock_lines() + existing_folder_lines());
}

TEST_F(ViewCreation, FolderIsForAllToReadAndTheOwnerToChange)
{
    const mode_t old_mask = umask(0);
    EXPECT_EQ(prepare(), EC_OK);
    umask(old_mask);
    EXPECT_EQ(fs::status(view_folder).permissions(), fs::perms(0755));
}

TEST_F(ViewCreation, EachDiskIsCompleteBeforeTheNext)
{
    add_disk("b");
    add_disk("a-000001");
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(image_lines(), config_lines() + lock_lines() + new_folder_lines() +
                                 copied_lines("b", "b") + linked_lines("b", "b") +
                                 copied_lines("a-000001", "a") + linked_lines("a-000001", "a"));
    EXPECT_EQ(view_names(), (Strings{"a-flat.vmdk", "a.vmdk", "b-flat.vmdk", "b.vmdk"}));
    EXPECT_EQ(out, (Strings{in_datastore("b.vmdk"), in_datastore("a.vmdk")}));
}

TEST_F(ViewCreation, OutGrowsBehindWhatItHolds)
{
    add_disk("a");
    add_disk("b");
    out = {"first", "second"};
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(out, (Strings{"first", "second", in_datastore("a.vmdk"), in_datastore("b.vmdk")}));
}

TEST_F(ViewCreation, DisksOfTheSameNameGetDifferentOnes)
{
    add_disk("disk", "vm");
    add_disk("disk", "vm2");
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(view_names(),
              (Strings{"disk(1)-flat.vmdk", "disk(1).vmdk", "disk-flat.vmdk", "disk.vmdk"}));
    EXPECT_EQ(out, (Strings{in_datastore("disk.vmdk"), in_datastore("disk(1).vmdk")}));
    EXPECT_TRUE(fs::equivalent(in_view("disk(1)-flat.vmdk"), in_image("vm2/disk.vmdk")));
    EXPECT_EQ(mount_point.read(view_path("disk(1).vmdk")), descriptor("disk(1)-flat.vmdk"));
}

TEST_F(ViewCreation, ExistingViewIsReusedWithItsLinksAndNewDescriptors)
{
    add_disk("a");
    EXPECT_EQ(prepare(), EC_OK);
    mount_point.write(view_path("other"), "somebody else's");
    mount_point.write(view_path("a.vmdk"), "changed since");

    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(view_names(), (Strings{"a-flat.vmdk", "a.vmdk", "other"}));
    EXPECT_EQ(mount_point.read(view_path("a-flat.vmdk")), "data of vm/a");
    EXPECT_EQ(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
    EXPECT_EQ(out.size(), 2);
    Lines reused = image_lines();
    reused.erase(reused.end() - 1);
    EXPECT_EQ(reused,
              config_lines() + lock_lines() + existing_folder_lines() +
                  copied_lines("a", "a", true) +
                  (Lines{exists_line(in_image("vm/a.vmdk")), exists_line(in_view("a-flat.vmdk"))}));
}

// ---- Before there is a folder -------------------------------------------------------------------

TEST_F(ViewCreation, MalformedDiskPathIsRefusedBeforeTheLock)
{
    add_disk("a");
    entries.emplace_back("no datastore/backups/x.vmdk.desc");
    EXPECT_EQ(prepare(), EC_INVALID_PARAMETER);
    const EcStatusException cause(EC_INVALID_PARAMETER, "buildDatastore");
    EXPECT_EQ(image_lines(),
              config_lines() +
                  (Lines{{IXFS_LOG_ERR, "populateVmirPath",
                          "ERR - Failed to build vmdk paths for file: " + cause.message + "\n"},
                         failed_view_line(20)}));
    expect_no_folder_touched();
}

// Paths may take as many bytes as a view does. So memory is short only once the configuration was
// read: without disks, the view is what is allocated next.
bool configuration_is_read;

void watch_configuration(int severity, const char* tag, const char* message)
{
    LogRecorder::callback(severity, tag, message);
    if (std::string(message) == "INF - Size after striping padding: 5\n")
        configuration_is_read = true;
}

TEST_F(ViewCreation, ViewForWhichMemoryIsShortIs36)
{
    entries.clear();
    log_info.log_callback = watch_configuration;
    configuration_is_read = false;
    const auto no_view = interpose::on_allocation([](std::size_t size) {
        if (size != sizeof(_ixfs_view_t) || !configuration_is_read)
            return std::optional<void*>();
        errno = ENOMEM;
        return std::optional<void*>(nullptr);
    });
    EXPECT_EQ(prepare(), 36);
    EXPECT_EQ(image_lines(),
              config_lines() +
                  (Lines{{IXFS_LOG_ERR, "_ixfs_view_create()",
                          "ERR - calloc(" + std::to_string(sizeof(_ixfs_view_t)) +
                              ") failed, error = 12\n"},
                         {IXFS_LOG_ERR, "createGlobalLockForView", "ERR - Failed to create view\n"},
                         failed_view_line(36)}));
    expect_no_folder_touched();
}

TEST_F(ViewCreation, FailedLockIs158AndTouchesNoFolder)
{
    auto uname = interpose::on_uname.fails(EFAULT);
    EXPECT_EQ(prepare(), 158);
    EXPECT_EQ(image_lines(),
              config_lines() +
                  (Lines{{IXFS_LOG_ERR, view_lock::lock_tag,
                          "ERR - ACE_OS::hostname() failed, error = 14\n"},
                         {IXFS_LOG_ERR, "createGlobalLockForView", "ERR - Failed to get lock\n"},
                         failed_view_line(158)}));
    expect_no_folder_touched();
}

TEST_F(ViewCreation, FailedLockLeavesAnExistingFolderAlone)
{
    mount_point.make_folder(view_path("kept"));
    auto tries = view_lock::fail_tries(interpose::always, EBUSY);
    EXPECT_EQ(prepare(), 158);
    EXPECT_EQ(view_names(), Strings{"kept"});
    EXPECT_EQ(log.with_message("ERR - Failed to get lock\n").size(), 1);
}

TEST_F(ViewCreation, FolderThatCannotBeMadeIs1AndNothingIsDeleted)
{
    auto mkdir = interpose::on_mkdir([&](const char* path, mode_t) {
        if (path != view_folder)
            return std::optional<int>();
        errno = EROFS;
        return std::optional<int>(-1);
    });
    auto rmdir = interpose::on_rmdir.watch();
    EXPECT_EQ(prepare(), 1);
    EXPECT_EQ(rmdir.calls(), 0);
    Lines expected = config_lines() + lock_lines() + new_folder_lines();
    expected.back() = {IXFS_LOG_INF, "_ixfs_folder_create()",
                       "ERR - ACE_OS::mkdir(): Could not create Parent (" + view_folder +
                           "), error: 30\n"};
    EXPECT_EQ(image_lines(),
              expected + (Lines{{IXFS_LOG_ERR, "makeViewFolder",
                                 "ERR - Could not create folder for view: " + view_folder + "\n"},
                                failed_view_line(1)}));
    EXPECT_TRUE(log.with_tag("_ixfs_folder_delete()").empty());
    expect_no_folder_touched();
}

TEST_F(ViewCreation, ImageDirectoryThatIsGoneIsNotMadeAnew)
{
    auto access = interpose::on_access([&](const char* path, int) {
        if (path == view_folder)
            fs::remove_all(in_image(""));
        return std::optional<int>();
    });
    EXPECT_EQ(prepare(), 1);
    EXPECT_FALSE(fs::exists(in_image("")));
}

// ---- Disks that would overwrite each other ------------------------------------------------------

TEST_F(ViewCreation, DiskNamedLikeAnothersDataLinkIsRefused)
{
    add_disk("a");
    add_disk("a-flat");
    EXPECT_EQ(prepare(), EC_INVALID_PARAMETER);
    EXPECT_EQ(image_lines(),
              config_lines() + (Lines{{IXFS_LOG_ERR, "create_view_vmir",
                                       "ERR - Another disk's descriptor has the name of the data "
                                       "file of: " +
                                           entries[0] + "\n"},
                                      failed_view_line(20)}));
    expect_no_folder_touched();
    for (const std::string name : {"a", "a-flat"}) {
        EXPECT_EQ(mount_point.read(original_path(name + ".vmdk")), "data of vm/" + name);
        EXPECT_EQ(mount_point.read(original_path(name + ".vmdk.desc")),
                  descriptor(name + "-flat.vmdk"));
    }
}

TEST_F(ViewCreation, OrderOfDisksThatWouldOverwriteEachOtherDoesNotMatter)
{
    add_disk("a-flat");
    add_disk("a");
    EXPECT_EQ(prepare(), EC_INVALID_PARAMETER);
    expect_no_folder_touched();
    EXPECT_EQ(mount_point.read(original_path("a.vmdk")), "data of vm/a");
}

TEST_F(ViewCreation, DiskInTheViewFolderIsRefused)
{
    add_disk("a", "_vmir");
    EXPECT_EQ(prepare(), EC_INVALID_PARAMETER);
    EXPECT_EQ(image_lines(),
              config_lines() + (Lines{{IXFS_LOG_ERR, "create_view_vmir",
                                       "ERR - Disk lies in the view folder: " + entries[0] + "\n"},
                                      failed_view_line(20)}));
    EXPECT_EQ(view_names(), (Strings{"a.vmdk", "a.vmdk.desc"}));
    EXPECT_EQ(mount_point.read(view_path("a.vmdk")), "data of _vmir/a");
}

TEST_F(ViewCreation, DiskInTheViewFolderByADetourIsRefused)
{
    add_disk("a", "_vmir");
    for (const std::string detour : {"/vm/../_vmir", "//_vmir", "/./_vmir/."}) {
        entries = {"[ds] " + image_path + detour + "/a.vmdk.desc"};
        EXPECT_EQ(prepare(), EC_INVALID_PARAMETER) << detour;
        EXPECT_EQ(mount_point.read(view_path("a.vmdk")), "data of _vmir/a");
    }
}

TEST_F(ViewCreation, DiskInAFolderNamedLikeTheViewFolderIsNotRefused)
{
    add_disk("a", "_vmir2");
    add_disk("b", "vm/_vmir");
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(out.size(), 2);
}

} // namespace
