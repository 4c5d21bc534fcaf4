#include "image_test.h"
#include "interpose.h"

#include <filesystem>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

namespace
{

namespace fs = std::filesystem;

// Which disks are refused because of what an earlier preparation, or anybody, has left in the view.
class DiskChecks : public ImageTest
{
protected:
    DiskChecks()
    {
        add_disk("a");
        mount_point.make_folder(image_path + "/_vmir");
    }

    // Nothing is locked, made or removed, and the log names the disk.
    void expect_refused(const std::string& reason, const std::string& entry)
    {
        const std::vector<std::string> names = view_names();
        EXPECT_EQ(prepare(), EC_INVALID_PARAMETER);
        EXPECT_EQ(view_names(), names);
        EXPECT_EQ(
            image_lines(),
            config_lines() +
                (Lines{{IXFS_LOG_ERR, "create_view_vmir", "ERR - " + reason + ": " + entry + "\n"},
                       {IXFS_LOG_ERR, "create_view_vmir",
                        "ERR - Create view for VM Instant Recovery has failed: 20.\n"}}));
    }

    void set_time(const std::string& path, long seconds, long nanoseconds = 0)
    {
        const timespec times[2] = {{seconds, nanoseconds}, {seconds, nanoseconds}};
        ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    }

    const std::string data_path = in_image("vm/a.vmdk");
    const std::string link_path = in_view("a-flat.vmdk");
    const std::string other_data = "Data link in the view is another file than the data of";
    const std::string other_link =
        "Descriptor has the name of another disk's data link in the view";
};

TEST_F(DiskChecks, DataLinkOfAnotherSizeIsRefused)
{
    mount_point.write(view_path("a-flat.vmdk"), "another");
    set_time(data_path, 1000);
    set_time(link_path, 1000);
    expect_refused(other_data, entries[0]);
    EXPECT_EQ(mount_point.read(view_path("a-flat.vmdk")), "another");
}

TEST_F(DiskChecks, ViewThatASlowServerHidesForAWhileIsCheckedAllTheSame)
{
    mount_point.write(view_path("a-flat.vmdk"), "another");
    int silences = 0;
    const auto open = interpose::on_opendir([&](const char* path) {
        const bool is_mounted = helper_commands() == std::vector<std::string>{"mount"};
        if (path != view_folder || !is_mounted || ++silences > 3)
            return std::optional<int>();
        errno = ETIME;
        return std::optional<int>(-1);
    });
    expect_refused(other_data, entries[0]);
    EXPECT_GT(silences, 3);
}

TEST_F(DiskChecks, DataLinkThatASlowServerHidesForAWhileIsCheckedAllTheSame)
{
    for (const std::string& hidden : {link_path, data_path}) {
        mount_point.write(view_path("a-flat.vmdk"), "another");
        int silences = 0;
        const auto stat = interpose::on_stat([&](const char* path, struct stat*) {
            if (path != hidden || ++silences > 3)
                return std::optional<int>();
            errno = ETIME;
            return std::optional<int>(-1);
        });
        expect_refused(other_data, entries[0]);
        EXPECT_GT(silences, 3) << hidden;
    }
}

TEST_F(DiskChecks, DataLinkOfAnotherTimeIsRefused)
{
    fs::copy_file(data_path, link_path);
    set_time(data_path, 1000);
    set_time(link_path, 1001);
    expect_refused(other_data, entries[0]);
}

TEST_F(DiskChecks, DataLinkOfAnotherNanosecondIsRefused)
{
    fs::copy_file(data_path, link_path);
    set_time(data_path, 1000);
    set_time(link_path, 1000, 1);
    expect_refused(other_data, entries[0]);
}

// A file system may number the names of one file apart, and a view may have been restored.
TEST_F(DiskChecks, DataLinkThatMayBeTheDisksIsUsed)
{
    fs::copy_file(data_path, link_path);
    set_time(data_path, 1000);
    set_time(link_path, 1000);
    EXPECT_EQ(prepare(), EC_OK);
}

TEST_F(DiskChecks, DataLinkThatIsASymbolicLinkIsRefused)
{
    fs::create_symlink("../vm/a.vmdk", link_path);
    expect_refused(other_data, entries[0]);
    EXPECT_TRUE(fs::is_symlink(link_path));
}

TEST_F(DiskChecks, DataLinkThatIsAFolderIsRefused)
{
    fs::create_directory(link_path);
    expect_refused(other_data, entries[0]);
}

TEST_F(DiskChecks, DataThatIsNoFileAnyMoreIsRefused)
{
    EXPECT_EQ(prepare(), EC_OK);
    out.clear();
    fs::remove(data_path);
    fs::create_directory(data_path);
    expect_refused(other_data, entries[0]);
}

TEST_F(DiskChecks, MissingDataIsToldWhenItIsItsTurn)
{
    EXPECT_EQ(prepare(), EC_OK);
    fs::remove(data_path);
    EXPECT_EQ(prepare(), EC_FILE_NOT_FOUND);
}

// Both disks get the base name "a", and their numbers by their order.
TEST_F(DiskChecks, SameDisksInAnotherOrderAreRefused)
{
    add_disk("a", "vm2");
    const fs::file_time_type time = fs::last_write_time(data_path);
    mount_point.write(image_path + "/vm2/a.vmdk", "data of vm/A"); // as long, and as old
    fs::last_write_time(in_image("vm2/a.vmdk"), time);
    EXPECT_EQ(prepare(), EC_OK);
    std::swap(entries[0], entries[1]);
    expect_refused(other_data, entries[0]);
}

TEST_F(DiskChecks, DescriptorWithTheNameOfADataLinkIsRefused)
{
    EXPECT_EQ(prepare(), EC_OK);
    entries.clear();
    add_disk("a-flat");
    expect_refused(other_link, entries[0]);
    EXPECT_EQ(mount_point.read(view_path("a-flat.vmdk")), "data of vm/a");
}

// The backup's own name may be gone: then the view holds the last one.
TEST_F(DiskChecks, DescriptorWithTheNameOfTheOnlyDataLinkIsRefused)
{
    EXPECT_EQ(prepare(), EC_OK);
    fs::remove(data_path);
    entries.clear();
    add_disk("a-flat");
    expect_refused(other_link, entries[0]);
}

TEST_F(DiskChecks, DescriptorThatOnlyLooksLikeADataLinkIsWrittenAgain)
{
    entries.clear();
    add_disk("b-flat");
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(mount_point.read(view_path("b-flat.vmdk")), descriptor("b-flat-flat.vmdk"));
}

TEST_F(DiskChecks, SymbolicLinkWithSuchANameIsTakenAway)
{
    entries.clear();
    add_disk("b-flat");
    fs::create_symlink("../vm/a.vmdk", in_view("b-flat.vmdk"));
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(mount_point.read(original_path("a.vmdk")), "data of vm/a");
    EXPECT_EQ(mount_point.read(view_path("b-flat.vmdk")), descriptor("b-flat-flat.vmdk"));
}

TEST_F(DiskChecks, DiskThatALinkLeadsIntoTheViewIsRefused)
{
    entries.clear();
    add_disk("x", "_vmir/deeper");
    fs::create_directory_symlink("_vmir", in_image("vm3"));
    entries = {"[ds] " + image_path + "/vm3/deeper/x.vmdk.desc"};
    expect_refused("Disk lies in the view folder", entries[0]);
}

TEST_F(DiskChecks, DiskThatALinkLeadsElsewhereIsPrepared)
{
    fs::create_directory_symlink("vm", in_image("vm3"));
    entries = {"[ds] " + image_path + "/vm3/a.vmdk.desc"};
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_TRUE(fs::equivalent(link_path, data_path));
}

// Another preparation, of the same image with its disks in another order, begins between the check
// of this one and the making of its view folder. There is no view at either's check.
TEST_F(DiskChecks, DataLinkOfAnotherDiskThatIsMadeAfterTheCheckIsNotUsed)
{
    fs::remove(view_folder);
    add_disk("a", "vm2");
    const auto mkdir = interpose::on_mkdir([&](const char* path, mode_t) {
        if (path == view_folder) {
            mount_point.make_folder(image_path + "/_vmir");
            fs::create_hard_link(in_image("vm2/a.vmdk"), link_path);
        }
        return std::optional<int>();
    });
    const ec_status status = prepare();
    EXPECT_EQ(mkdir.calls() > 0, true);
    EXPECT_NE(status, EC_OK) << "the descriptor of vm/a names the data of vm2/a";
    EXPECT_EQ(out, std::vector<std::string>());
}

} // namespace
