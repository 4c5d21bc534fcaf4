#include "image_test.h"

#include <filesystem>

namespace
{

namespace fs = std::filesystem;

// What stands in the view folder's place is never used, and nothing happens to it.
class ViewFolderReplaced : public ImageTest
{
protected:
    ViewFolderReplaced() { add_disk("a"); }

    void expect_refused()
    {
        EXPECT_EQ(prepare(), 1);
        EXPECT_EQ(image_lines(),
                  config_lines() + lock_lines() +
                      (Lines{exists_line(view_folder),
                             {IXFS_LOG_ERR, "makeViewFolder",
                              "ERR - Could not create folder for view: " + view_folder + "\n"},
                             {IXFS_LOG_ERR, "create_view_vmir",
                              "ERR - Create view for VM Instant Recovery has failed: 1.\n"}}));
    }

    const TempDir elsewhere;
};

TEST_F(ViewFolderReplaced, FileIsRefusedAndStays)
{
    mount_point.write(image_path + "/_vmir", "a file");
    expect_refused();
    EXPECT_EQ(mount_point.read(image_path + "/_vmir"), "a file");
}

TEST_F(ViewFolderReplaced, LinkOutOfTheImageIsRefused)
{
    elsewhere.write("host", "file");
    fs::create_directory_symlink(elsewhere.path(), view_folder);
    expect_refused();
    EXPECT_EQ(elsewhere.read("host"), "file");
    EXPECT_TRUE(fs::is_symlink(view_folder));
}

TEST_F(ViewFolderReplaced, LinkIntoTheImageIsRefused)
{
    fs::create_directory_symlink("vm", view_folder);
    expect_refused();
    EXPECT_TRUE(fs::exists(in_image("vm/a.vmdk")));
}

TEST_F(ViewFolderReplaced, LinkThatLeadsNowhereIsRefused)
{
    fs::create_directory_symlink("nowhere", view_folder);
    expect_refused();
    EXPECT_FALSE(fs::exists(in_image("nowhere")));
}

} // namespace
