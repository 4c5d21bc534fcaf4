// Helpers that report a folder of the image, and leave the image mounted.
#include "hidden_mounts.h"
#include "mount_fixture.h"
#include "record_view.h"
#include "tree_snapshot.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <optional>
#include <string>
#include <tuple>

#include <sys/mount.h>

namespace
{

// Whether the kernel tells of the roots of mounts, and whether the helper tells a mount path.
class MountPoint : public MountTest, public testing::WithParamInterface<std::tuple<bool, bool>>
{
protected:
    MountPoint()
    {
        stored.make_folder("clients/backups");
        stored.write("clients/backups/disk", "data");
        if (!std::get<0>(GetParam()))
            old_kernel.emplace();
    }

    // The helper mounts the store on the mount directory and reports a folder of it.
    void given_mount_of_folder()
    {
        helper.does("[ $1 = umount ] || mount --bind '" + stored.path() + "' " + mount_directory);
        ScriptedHelper::Answer answer{"MOUNTPOINT=" + folder, "EXIT_STATUS=0"};
        if (std::get<1>(GetParam()))
            answer.insert(answer.begin(), "MNTPATH=/m/x");
        helper.answers({answer, {"EXIT_STATUS=3"}});
        ASSERT_EQ(mount(), folder);
    }

    void TearDown() override
    {
        MountTest::TearDown();
        umount2(mount_directory, MNT_DETACH);
    }

    TempDir stored;
    const std::string folder = std::string(mount_directory) + "/clients";
    std::optional<NoMountRoots> old_kernel;
};

TEST_P(MountPoint, InTheImageStaysWhileTheImageIsMounted)
{
    given_mount_of_folder();
    const TreeSnapshot content(stored.path());
    ixfs_unmount(handle.get());
    EXPECT_THAT(content.changes(), testing::IsEmpty());
    EXPECT_THAT(log.with_message("ERR - still mounted, not deleted: " + folder + "\n"),
                testing::SizeIs(1));
    EXPECT_FALSE(record_view::has_mount(handle.get()));
}

TEST_P(MountPoint, InTheImageIsDeletedFromTheDirectoryBelowWhenTheImageIsGone)
{
    given_mount_of_folder();
    const TreeSnapshot content(stored.path());
    ASSERT_EQ(umount2(mount_directory, MNT_DETACH), 0);
    std::filesystem::create_directories(folder + "/below");
    ixfs_unmount(handle.get());
    EXPECT_FALSE(std::filesystem::exists(folder));
    EXPECT_THAT(content.changes(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Each, MountPoint, testing::Combine(testing::Bool(), testing::Bool()),
                         [](const auto& test) {
                             return std::string(std::get<0>(test.param) ? "Linux" : "OldLinux") +
                                    (std::get<1>(test.param) ? "WithPath" : "WithoutPath");
                         });

} // namespace
