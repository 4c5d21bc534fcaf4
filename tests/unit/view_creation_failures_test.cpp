#include "image_test.h"
#include "interpose.h"

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;

// Preparing a VM of which a disk fails, after the view folder is there.
using ViewCreationFailures = ImageTest;

TEST_F(ViewCreationFailures, FailedLinkOfTheSecondOfThreeDisksRemovesTheWholeFolder)
{
    for (const char* const name : {"a", "b", "c"})
        add_disk(name);
    out = {"earlier"};
    auto link = interpose::on_link.fails_once(EMLINK, 2);
    EXPECT_EQ(prepare(), 11);
    EXPECT_EQ(link.calls(), 2) << "the third disk is not begun";
    EXPECT_FALSE(fs::exists(view_folder));
    EXPECT_EQ(out, std::vector<std::string>{"earlier"});
    for (const std::string name : {"a", "b", "c"})
        EXPECT_EQ(mount_point.read(original_path(name + ".vmdk")), "data of vm/" + name);

    const EcStatusException cause(EC_SYSTEM_ERROR, "copyAndLinkOneVmirPath");
    const Lines lines = image_lines();
    const Lines before = config_lines() + lock_lines() + new_folder_lines() +
                         copied_lines("a", "a") + linked_lines("a", "a") + copied_lines("b", "b");
    const Lines failure{
        exists_line(in_image("vm/b.vmdk")),
        {IXFS_LOG_INF, "copyOrLinkPath", "INF - makeLink? 1\n"},
        {IXFS_LOG_ERR, "_ixfs_create_hard_link()",
         "ERR - Could not create link " + in_image("vm/b.vmdk") + " to " + in_view("b-flat.vmdk") +
             " - 31\n"},
        {IXFS_LOG_ERR, "copyOrLinkPath",
         "ERR - Could not create link for " + in_view("b-flat.vmdk") + ", error 11\n"},
        {IXFS_LOG_ERR, "copyAndLinkOneVmirPath",
         "ERR - Failed to link src .vmdk: " + original_path("b.vmdk") + " to " +
             view_path("b-flat.vmdk") + "\n"},
        {IXFS_LOG_ERR, "create_view_vmir",
         "ERR - An internal error has occurred: " + cause.message + "\n"},
    };
    const Lines until_removal = before + failure;
    ASSERT_EQ(lines.size(), until_removal.size() + 4);
    EXPECT_EQ(Lines(lines.begin(), lines.end() - 4), until_removal);
    for (const char* const name : {"a.vmdk", "a-flat.vmdk", "b.vmdk"})
        EXPECT_EQ(log.with_message(removed_file_line(in_view(name)).message).size(), 1);
    EXPECT_EQ(lines.back(), removed_folder_line(view_folder));
}

TEST_F(ViewCreationFailures, FailedCopyTellsTheDiskAndItsNewName)
{
    add_disk("a");
    fs::remove(in_image("vm/a.vmdk.desc"));
    EXPECT_EQ(prepare(), 142);
    const EcStatusException cause(EC_FILE_NOT_FOUND, "copyAndLinkOneVmirPath");
    EXPECT_EQ(image_lines(),
              config_lines() + lock_lines() + new_folder_lines() +
                  (Lines{{IXFS_LOG_ERR, "copyOrLinkPath",
                          "ERR - Failed to find source file for copy/link: " +
                              in_image("vm/a.vmdk.desc") + "\n"},
                         {IXFS_LOG_ERR, "copyAndLinkOneVmirPath",
                          "ERR - Failed to copy src .desc: " + original_path("a.vmdk.desc") +
                              " to " + view_path("a.vmdk") + "\n"},
                         {IXFS_LOG_ERR, "copyAndLinkOneVmirPath",
                          "      with new .vmdk name: a-flat.vmdk\n"},
                         {IXFS_LOG_ERR, "create_view_vmir",
                          "ERR - An internal error has occurred: " + cause.message + "\n"},
                         removed_folder_line(view_folder)}));
    EXPECT_FALSE(fs::exists(view_folder));
}

TEST_F(ViewCreationFailures, FailedDiskRemovesAlsoAFolderThatWasThere)
{
    add_disk("a");
    EXPECT_EQ(prepare(), EC_OK);
    mount_point.make_folder(view_path("more"));
    fs::remove(in_image("vm/a.vmdk"));
    EXPECT_EQ(prepare(), 142);
    EXPECT_FALSE(fs::exists(view_folder));
}

TEST_F(ViewCreationFailures, StatusOfTheDiskIsReturnedAlsoWhenTheFolderCannotBeRemoved)
{
    add_disk("a");
    fs::remove(in_image("vm/a.vmdk"));
    auto rmdir = interpose::on_rmdir.fails(EBUSY);
    EXPECT_EQ(prepare(), 142);
    EXPECT_EQ(image_lines().back().message,
              "ERR - Unable to remove directory: " + view_folder + ", error = 16\n");
}

} // namespace
