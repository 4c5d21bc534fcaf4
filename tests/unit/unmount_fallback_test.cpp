// Unmounting that fails: the local unmount by force, and the failure recorders themselves.
#include "mount_fixture.h"
#include "process_state.h"
#include "real_mount.h"
#include "record_view.h"
#include "working_directory.h"

#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

namespace
{

class UnmountFallback : public MountTest
{
protected:
    // The lines of a local unmount of a folder that nothing is mounted on, and that holds
    // "backups".
    Lines lines_of_local_unmount() const
    {
        return Lines{attempt(), not_unmounted(EINVAL)} + lines_of_deletion();
    }

    Line attempt() const
    {
        return local_unmount_says.info("INF - attempting to umount -f (" + image.path() + ")");
    }

    Line not_unmounted(int error) const
    {
        return local_unmount_says.error("ERR - umount failed for " + image.path() +
                                        ", errno = " + std::to_string(error));
    }

    Line unmounted() const
    {
        return local_unmount_says.info("INF - umount successful: " + image.path());
    }

    Line still_mounted() const
    {
        return local_unmount_says.error("ERR - still mounted, not deleted: " + image.path());
    }

    Lines lines_of_deletion() const
    {
        return {found_folder_line(image / "backups"), removed_folder_line(image / "backups"),
                removed_folder_line(image.path())};
    }

    void expect_no_mount(ec_status status)
    {
        EXPECT_EQ(ixfs_last_error(handle.get()), status);
        EXPECT_FALSE(record_view::has_mount(handle.get()));
        EXPECT_EQ(semaphore_sets().size(), 0U);
    }
};

TEST_F(UnmountFallback, HelperThatFailsIsFollowedByAForcedUnmountAndTheDeletion)
{
    given_mount(mounts_image(), {{"EXIT_STATUS=3"}});
    std::vector<std::pair<std::string, int>> calls;
    const auto umount2 =
        interpose::on_umount2([&](const char* path, int flags) -> std::optional<int> {
            calls.emplace_back(path, flags);
            return std::nullopt;
        });
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_HELPER_FAILED);
    EXPECT_EQ(log.lines_here(),
              lines_before_unmount_command() +
                  lines_of_run(unmount_says, unmount_command(), {"EXIT_STATUS=3"}) +
                  unmount_says.error("ERR - command failed") + lines_of_local_unmount());
    EXPECT_EQ(calls, (std::vector<std::pair<std::string, int>>{{image.path(), MNT_FORCE}}));
    EXPECT_FALSE(image.exists("."));
    expect_no_mount(EC_HELPER_FAILED);
}

TEST_F(UnmountFallback, MountLeftByTheHelperIsUnmountedAndItsFolderDeleted)
{
    const auto mounted = RealMount::tmpfs(image.path());
    image.make_folder("backups");
    given_mount(mounts_image(), {{"EXIT_STATUS=3"}});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_HELPER_FAILED);
    EXPECT_EQ(log.with_tag("_ixfs_umount()"), (Lines{attempt(), unmounted()}));
    EXPECT_FALSE(image.exists("."));
    expect_no_mount(EC_HELPER_FAILED);
}

TEST_F(UnmountFallback, MountThatCannotBeUnmountedKeepsItsFilesAndTheCallGoesOn)
{
    const auto mounted = RealMount::tmpfs(image.path());
    image.make_folder("backups");
    image.write("backups/disk", "data");
    given_mount(mounts_image(), {{"EXIT_STATUS=3"}});
    const int in_use = open((image / "backups/disk").c_str(), O_RDONLY);
    ASSERT_NE(in_use, -1);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_HELPER_FAILED);
    close(in_use);
    EXPECT_EQ(log.lines_here(),
              lines_before_unmount_command() +
                  lines_of_run(unmount_says, unmount_command(), {"EXIT_STATUS=3"}) +
                  unmount_says.error("ERR - command failed") + attempt() + not_unmounted(EBUSY) +
                  still_mounted());
    EXPECT_EQ(image.read("backups/disk"), "data");
    expect_no_mount(EC_HELPER_FAILED);
}

TEST_F(UnmountFallback, OneOfTwoMountsOnTheSameFolderKeepsItsFiles)
{
    const auto below = RealMount::tmpfs(image.path());
    image.write("kept", "text");
    const auto above = RealMount::tmpfs(image.path());
    given_mount(mounts_image(), {{"EXIT_STATUS=3"}});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_HELPER_FAILED);
    EXPECT_EQ(log.with_tag("_ixfs_umount()"), (Lines{attempt(), unmounted(), still_mounted()}));
    EXPECT_EQ(image.read("kept"), "text");
}

TEST_F(UnmountFallback, MountPointThatIsNoAbsolutePathIsLeftAlone)
{
    const WorkingDirectory working_directory(image.path());
    image.make_folder("data");
    helper.answers({{"MOUNTPOINT=data", "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    helper.answers({{"EXIT_STATUS=3"}});
    const auto umount2 = interpose::on_umount2.watch();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_HELPER_FAILED);
    EXPECT_EQ(umount2.calls(), 0);
    EXPECT_EQ(log.with_tag("_ixfs_umount()"),
              Lines{local_unmount_says.error("ERR - not an absolute path, not deleted: data")});
    EXPECT_EQ(log.with_tag("_ixfs_folder_delete()"), Lines{});
    EXPECT_TRUE(image.exists("data"));
    expect_no_mount(EC_HELPER_FAILED);
}

TEST_F(UnmountFallback, FolderOfTheImageThatStaysMountedIsKept)
{
    helper.does("[ $1 = umount ] || { mount -t tmpfs ixfs-test '" + image.path() + "'; mkdir -p '" +
                image / "inner/backups" + "'; }");
    helper.answers({{"MOUNTPOINT=" + image / "inner", "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    helper.answers({{"EXIT_STATUS=3"}});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_HELPER_FAILED);
    const std::string folder = image / "inner";
    EXPECT_EQ(log.with_tag("_ixfs_umount()"),
              (Lines{local_unmount_says.info("INF - attempting to umount -f (" + folder + ")"),
                     local_unmount_says.error("ERR - umount failed for " + folder + ", errno = 22"),
                     local_unmount_says.error("ERR - still mounted, not deleted: " + folder)}));
    EXPECT_TRUE(image.exists("inner/backups"));
    ::umount2(image.path().c_str(), MNT_DETACH);
}

TEST_F(UnmountFallback, HelperThatCannotBeStarted)
{
    given_mount(mounts_image());
    {
        const auto popen = interpose::on_popen.fails(EMFILE);
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_SYSTEM_ERROR);
    }
    EXPECT_EQ(log.lines_here(),
              lines_before_unmount_command() +
                  unmount_says.info("INF - running command - " + unmount_command()) +
                  unmount_says.error("ERR - unable to run command - " + unmount_command()) +
                  lines_of_local_unmount());
    expect_no_mount(EC_SYSTEM_ERROR);
}

TEST_F(UnmountFallback, HelperThatCannotBeStartedLeavesNoMountWithAMountPathEither)
{
    given_mount(mounts_image_with_path());
    {
        const auto popen = interpose::on_popen.fails(EMFILE);
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_SYSTEM_ERROR);
    }
    EXPECT_EQ(log.with_message("INF - unmounted mount path: m/x\n"), Lines{});
    EXPECT_FALSE(image.exists("."));
    expect_no_mount(EC_SYSTEM_ERROR);
}

TEST_F(UnmountFallback, CommandThatCannotBeBuilt)
{
    given_mount(mounts_image());
    {
        const auto broken = interpose::on_snprintf([](const char* format) {
            const bool command = std::string(format).find("umount -f -server") != std::string::npos;
            return command ? std::optional<int>(-1) : std::nullopt;
        });
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_SYSTEM_ERROR);
    }
    EXPECT_EQ(log.lines_here(), lines_before_unmount_command() +
                                    unmount_says.error("ERR - unable to build command") +
                                    lines_of_local_unmount());
    EXPECT_EQ(helper.runs().size(), 1U);
    expect_no_mount(EC_SYSTEM_ERROR);
}

// Parameters

TEST_F(UnmountFallback, MissingCredentialWithTheFlagUnmountsLocallyBeforeAnythingElse)
{
    handle = make_handle(IXFS_FLAG_UNMOUNT_CRED);
    given_mount(mounts_image());
    record_view::clear_unmount_cred(handle.get());
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_INVALID_PARAMETER);
    EXPECT_EQ(log.lines_here(),
              Lines{unmount_says.error("ERR - invalid parameter, missing credentials")} +
                  lines_of_local_unmount());
    EXPECT_EQ(helper.runs().size(), 1U);
    expect_no_mount(EC_INVALID_PARAMETER);
}

TEST_F(UnmountFallback, MissingCredentialWithTheFlagStopsTheValidationThread)
{
    handle = make_handle(IXFS_FLAG_UNMOUNT_CRED);
    given_mount(mounts_image());
    record_view::clear_unmount_cred(handle.get());
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_INVALID_PARAMETER);
    EXPECT_TRUE(log.wait_for("INF - stopping validate thread, errno = 0\n"));
}

TEST_F(UnmountFallback, MissingCredentialWithoutTheFlagIsPassedOn)
{
    given_mount(mounts_image());
    record_view::clear_unmount_cred(handle.get());
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(helper.runs().size(), 2U);
}

TEST_F(UnmountFallback, MissingMountPointIsNotUnmounted)
{
    given_mount(mounts_image());
    record_view::set_mount_point(handle.get(), "");
    const auto umount2 = interpose::on_umount2.watch();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_INVALID_PARAMETER);
    EXPECT_EQ(umount2.calls(), 0);
    EXPECT_EQ(log.lines_here(),
              Lines{unmount_says.error("ERR - invalid parameter, missing mount point")});
    EXPECT_TRUE(image.exists("backups"));
    expect_no_mount(EC_INVALID_PARAMETER);
}

TEST_F(UnmountFallback, InvalidHandleIsWrittenTo)
{
    record_view::mark_of(handle.get())[6] = 'X';
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_INVALID_PARAMETER);
    EXPECT_EQ(log.lines(), Lines{});
    EXPECT_EQ(record_view::last_status(handle.get()), EC_INVALID_PARAMETER);
    record_view::mark_of(handle.get())[6] = 'L';
}

TEST_F(UnmountFallback, NullHandleIsRefused)
{
    EXPECT_EQ(ixfs_unmount(nullptr), EC_INVALID_PARAMETER);
}

TEST_F(UnmountFallback, LeavesNoDescriptor)
{
    const NoDescriptorsLeft no_descriptors;
    given_mount(mounts_image(), {{"EXIT_STATUS=3"}});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_HELPER_FAILED);
}

// The recorders, called directly

TEST_F(UnmountFallback, UnmountRecorderWithARecordUnmountsItsMountPoint)
{
    given_mount(mounts_image());
    _ixfs_no_unmount(handle.get(), record_view::mount_of(handle.get()), EC_SERVER_BUSY);
    EXPECT_EQ(log.lines_here(), lines_of_local_unmount());
    EXPECT_FALSE(record_view::has_mount(handle.get()));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_SERVER_BUSY);
}

TEST_F(UnmountFallback, UnmountRecorderWithoutARecordJustRecords)
{
    const auto umount2 = interpose::on_umount2.watch();
    _ixfs_no_unmount(handle.get(), nullptr, EC_HELPER_FAILED);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
    _ixfs_no_unmount(handle.get(), nullptr, EC_OK);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_OK);
    EXPECT_EQ(umount2.calls(), 0);
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(UnmountFallback, MountRecorderDeletesTheRecordAndLeavesTheMountItself)
{
    given_mount(mounts_image());
    const auto umount2 = interpose::on_umount2.watch();
    _ixfs_no_mount(handle.get(), EC_HELPER_FAILED);
    EXPECT_FALSE(record_view::has_mount(handle.get()));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
    EXPECT_EQ(umount2.calls(), 0);
    EXPECT_EQ(log.lines_here(), Lines{});
    EXPECT_TRUE(image.exists("backups"));
    EXPECT_EQ(helper.runs().size(), 1U);
    EXPECT_TRUE(log.wait_for("INF - stopping validate thread, errno = 0\n"));
}

TEST_F(UnmountFallback, MountRecorderWithoutAMountJustRecords)
{
    _ixfs_no_mount(handle.get(), EC_NO_MEMORY);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_NO_MEMORY);
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(UnmountFallback, DeletingNoRecordDoesNothing)
{
    _ixfs_mount_delete(nullptr);
    EXPECT_EQ(log.lines(), Lines{});
}

} // namespace
