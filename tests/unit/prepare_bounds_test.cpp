// Long texts in every argument of a preparation. None is cut but on the helper's command line; a
// path that the kernel does not take is a missing file.
#include "bounds.h"
#include "fake_time.h"
#include "image_test.h"

#include <filesystem>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;

class PrepareBounds : public ImageTest, public testing::WithParamInterface<unsigned int>
{
protected:
    const std::string text = bounds::text(GetParam());
    const FakeClock clock;
};

TEST_P(PrepareBounds, Credentials)
{
    creds.mount_cred = text.c_str();
    creds.unmount_cred = text.c_str();
    creds.reserved = text.c_str();
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(config, "<vm/>");
}

TEST_P(PrepareBounds, ServerOfOneSegment)
{
    creds.server = text.c_str();
    EXPECT_EQ(prepare(), EC_MOUNT_DIRECTORY);
    EXPECT_EQ(helper_commands(), std::vector<std::string>());
}

TEST_P(PrepareBounds, Client)
{
    creds.backup_id = text + "_1700000000";
    EXPECT_EQ(prepare(), EC_FILE_NOT_FOUND);
    EXPECT_EQ(helper_commands(), (std::vector<std::string>{"mount", "umount"}));
}

TEST_P(PrepareBounds, MalformedBackupId)
{
    creds.backup_id = text;
    EXPECT_EQ(prepare(), EC_INVALID_PARAMETER);
    EXPECT_EQ(helper_commands(), (std::vector<std::string>{"mount", "umount"}));
}

TEST_P(PrepareBounds, Datastore)
{
    add_disk("a");
    entries[0].replace(0, std::string("[ds]").size(), "[" + text + "]");
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(out, (std::vector<std::string>{"[" + text + "] " + view_path("a.vmdk")}));
}

TEST_P(PrepareBounds, FolderOfADisk)
{
    const std::string start = mount_point / image_path;
    const std::string folder = bounds::path(GetParam(), start).substr(start.size() + 1);
    const bool usable = (start + "/" + folder + "/a.vmdk.desc").size() <= bounds::longest_path;
    if (usable)
        add_disk("a", folder);
    else
        entries.push_back("[ds] " + image_path + "/" + folder + "/a.vmdk.desc");
    EXPECT_EQ(prepare(), usable ? EC_OK : EC_FILE_NOT_FOUND);
    EXPECT_EQ(out.size(), usable ? 1U : 0U);
    EXPECT_EQ(fs::exists(view_folder), usable) << "a disk that fails takes the view with it";
}

TEST_P(PrepareBounds, NameOfADisk)
{
    entries.push_back("[ds] " + original_path(text + ".vmdk.desc"));
    EXPECT_EQ(prepare(), EC_FILE_NOT_FOUND);
    EXPECT_EQ(out, std::vector<std::string>());
}

TEST_P(PrepareBounds, MalformedEntry)
{
    entries.push_back(text);
    EXPECT_EQ(prepare(), EC_INVALID_PARAMETER);
    EXPECT_FALSE(fs::exists(view_folder));
}

TEST_P(PrepareBounds, MountPoint)
{
    const std::string line = bounds::path(GetParam(), "MOUNTPOINT=" + mount_point.path());
    const fs::path deeper = bounds::as_text(line).substr(std::string("MOUNTPOINT=").size());
    fs::create_directories(deeper);
    fs::rename(mount_point / "backups", deeper / "backups");
    helper.answers({{line, "EXIT_STATUS=0"}});
    EXPECT_EQ(ixfs_prepare_vmir(creds, entries, &log_info, config, out, false), EC_OK);
    EXPECT_EQ(config, "<vm/>");
    EXPECT_TRUE(fs::is_directory(deeper / image_path / "_vmir"));
}

INSTANTIATE_TEST_SUITE_P(, PrepareBounds, bounds::lengths, bounds::length_name);

} // namespace
