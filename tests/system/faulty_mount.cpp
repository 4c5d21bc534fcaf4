#include "faulty_mount.h"

#include "tree_snapshot.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <iterator>

#include <sys/mount.h>

namespace fs = std::filesystem;

using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;

namespace
{

constexpr Speaker exists_says("_ixfs_file_exists()");
constexpr Speaker copy_or_link_says("copyOrLinkPath");
constexpr Speaker disk_says("copyAndLinkOneVmirPath");

} // namespace

FaultyMount::FaultyMount()
{
    add_disk("a");
    add_disk("b");
    const std::string mount = "mount --bind " + served.path() + " " + mount_point.path();
    const std::string unmount = "umount " + mount_point.path();
    helper.does("if [ $1 = mount ]; then " + mount + "; else " + unmount + "; fi");
}

ec_status FaultyMount::prepare()
{
    const TreeSnapshot before(mount_point.path());
    std::vector<std::string> commands = helper_commands();
    commands.insert(commands.end(), {"mount", "umount"});
    const ec_status status = ImageTest::prepare();
    EXPECT_EQ(helper_commands(), commands);
    EXPECT_NE(umount2(mount_point.path().c_str(), MNT_DETACH), 0) << "the image was still mounted";
    EXPECT_THAT(before.changes(), Each(StartsWith(image_path + "/_vmir")));
    return status;
}

Lines FaultyMount::failures() const
{
    Lines failures;
    const Lines all = image_lines();
    std::copy_if(all.begin(), all.end(), std::back_inserter(failures),
                 [](const Line& line) { return line.message.rfind("ERR - ", 0) == 0; });
    return failures;
}

Line FaultyMount::unseen_line(const std::string& path, const std::string& reason)
{
    return exists_says.error("ERR - ACE_OS::access(" + path + ") failed" + reason);
}

Line FaultyMount::missing_config_line() const
{
    return read_says.error("ERR - VM Config file does not exist: " + config_path());
}

Line FaultyMount::internal_error_line(ec_status status)
{
    const EcStatusException cause(status, "copyAndLinkOneVmirPath");
    return view_says.error("ERR - An internal error has occurred: " + cause.message);
}

Lines FaultyMount::failed_descriptor_lines(ec_status status) const
{
    return {disk_says.error("ERR - Failed to copy src .desc: " + original_path("b.vmdk.desc") +
                            " to " + view_path("b.vmdk")),
            internal_error_line(status)};
}

Lines FaultyMount::unseen_descriptor_lines(const std::string& reason) const
{
    return Lines{unseen_line(descriptor_b, reason),
                 copy_or_link_says.error("ERR - Failed to find source file for copy/link: " +
                                         descriptor_b)} +
           failed_descriptor_lines(EC_FILE_NOT_FOUND);
}

Lines FaultyMount::failed_copy_lines() const
{
    return Lines{copy_or_link_says.error("ERR - Failed copying Disk Descriptor (14): from " +
                                         descriptor_b + " to " + view_b)} +
           failed_descriptor_lines(EC_FILE_NOT_COPIED);
}

Lines FaultyMount::failed_link_lines() const
{
    return {copy_or_link_says.error("ERR - Could not create link for " + link_b + ", error 11"),
            disk_says.error("ERR - Failed to link src .vmdk: " + original_path("b.vmdk") + " to " +
                            view_path("b-flat.vmdk")),
            internal_error_line(EC_SYSTEM_ERROR)};
}

void FaultyMount::expect_whole_view() const
{
    EXPECT_THAT(view_names(), ElementsAre("a-flat.vmdk", "a.vmdk", "b-flat.vmdk", "b.vmdk"));
    for (const std::string name : {"a", "b"}) {
        EXPECT_EQ(mount_point.read(view_path(name + ".vmdk")), descriptor(name + "-flat.vmdk"));
        EXPECT_TRUE(fs::equivalent(in_image("vm/" + name + ".vmdk"), in_view(name + "-flat.vmdk")));
    }
    EXPECT_THAT(out, ElementsAre("[ds] " + view_path("a.vmdk"), "[ds] " + view_path("b.vmdk")));
}

void FaultyMount::expect_undisturbed_success() const
{
    EXPECT_EQ(image_lines(), config_lines() + lock_lines() + new_folder_lines() +
                                 copied_lines("a", "a") + linked_lines("a", "a") +
                                 copied_lines("b", "b") + linked_lines("b", "b"));
    expect_whole_view();
}

void FaultyMount::expect_failure_without_view(const Lines& expected) const
{
    EXPECT_EQ(failures(), expected);
    EXPECT_FALSE(fs::exists(view_folder));
    EXPECT_THAT(out, IsEmpty());
}
