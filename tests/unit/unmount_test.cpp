// Unmounting through the helper.
#include "canned_helper.h"
#include "child_process.h"
#include "fake_time.h"
#include "hidden_mounts.h"
#include "mount_fixture.h"
#include "process_state.h"
#include "real_mount.h"
#include "record_view.h"
#include "working_directory.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <sys/mount.h>

namespace
{

class Unmount : public MountTest
{
protected:
    // The lines of an unmount up to the end of its first run.
    Lines lines_of_first_run(const std::vector<std::string>& responses) const
    {
        return lines_before_unmount_command() +
               lines_of_run(unmount_says, unmount_command(), responses);
    }

    // The lines of the mount point's deletion, which holds "backups".
    Lines lines_of_deletion() const
    {
        return {found_folder_line(image / "backups"), removed_folder_line(image / "backups"),
                removed_folder_line(image.path())};
    }

    Line still_mounted(const std::string& folder = "") const
    {
        return unmount_says.error("ERR - still mounted, not deleted: " + image.path() + folder);
    }

    // Mounts by a helper that mounts a file system on the image, and tells of a folder in it.
    void given_folder_of_image()
    {
        helper.does("[ $1 = umount ] || { mount -t tmpfs ixfs-test '" + image.path() +
                    "'; mkdir -p '" + image / "inner/backups" + "'; }");
        helper.answers({{"MNTPATH=/m/x", "MOUNTPOINT=" + image / "inner", "EXIT_STATUS=0"}});
        ASSERT_NE(mount(), nullptr);
        ASSERT_TRUE(image.exists("inner/backups"));
    }

    const Lines mount_path_lines{unmount_says.info("INF - looking for mount path: m/x"),
                                 unmount_says.info("INF - unmounted mount path: m/x")};
};

TEST_F(Unmount, SaysWhatItDoesInOrder)
{
    given_mount(mounts_image(), {{"flushing", "EXIT_STATUS=0"}});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.lines_here(), lines_of_first_run({"flushing", "EXIT_STATUS=0"}));
    EXPECT_FALSE(record_view::has_mount(handle.get()));
    EXPECT_TRUE(image.exists("backups")) << "the mount point is the helper's business";
}

TEST_F(Unmount, WithNothingMountedClearsTheStatusWithoutAWord)
{
    helper.answers({{"EXIT_STATUS=3"}});
    mount();
    ASSERT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
    log.take();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_OK);
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(Unmount, SuccessKeepsTheStatusOfAnEarlierFailure)
{
    given_mount(mounts_image());
    mount();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_ALREADY_MOUNTED);
}

TEST_F(Unmount, TellsTheJobLogTheExitStatusAlone)
{
    given_mount(mounts_image(), {{"flushing", "EXIT_STATUS=0", " EXIT_STATUS=1", "MNTPATH=/m/x"}});
    ixfs_unmount(handle.get());
    EXPECT_EQ(job_log.lines(),
              (std::vector<std::string>{"JBD - INF - waiting for mount mutex...\n",
                                        "JBD - INF - response - EXIT_STATUS=0\n"}));
}

TEST_F(Unmount, TellsTheJobLogEachExitStatus)
{
    FakeClock clock;
    given_mount(mounts_image(), {{"EXIT_STATUS=25"}, {"EXIT_STATUS=5", "EXIT_STATUS=0"}});
    ixfs_unmount(handle.get());
    EXPECT_EQ(job_log.lines(),
              (std::vector<std::string>{"JBD - INF - waiting for mount mutex...\n",
                                        "JBD - INF - response - EXIT_STATUS=25\n",
                                        "JBD - INF - response - EXIT_STATUS=5\n",
                                        "JBD - INF - response - EXIT_STATUS=0\n"}));
}

TEST_F(Unmount, BusyServerIsTriedAgainAfterOneSecond)
{
    FakeClock clock;
    given_mount(mounts_image(), {{"EXIT_STATUS=25"}, {"EXIT_STATUS=25"}, {"EXIT_STATUS=0"}});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    const Lines busy = lines_of_run(unmount_says, unmount_command(), {"EXIT_STATUS=25"}) +
                       unmount_says.info("INF - too busy to connect, retrying command");
    EXPECT_EQ(log.lines_here(),
              lines_before_unmount_command() + busy + busy +
                  lines_of_run(unmount_says, unmount_command(), {"EXIT_STATUS=0"}));
    EXPECT_EQ(clock.sleeps(), (std::vector<double>{1, 1}));
}

TEST_F(Unmount, BusyServerUntilTheTimeoutStillReturnsZeroAndLeavesNoMount)
{
    FakeClock clock;
    given_mount(mounts_image(), {{"EXIT_STATUS=25"}});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.lines_here().back(), unmount_says.error("ERR - timeout period exceeded"));
    EXPECT_EQ(helper.runs().size(), 1U + 61U);
    EXPECT_EQ(clock.sleeps(), std::vector<double>(60, 1));
    EXPECT_FALSE(record_view::has_mount(handle.get()));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_OK);
    EXPECT_TRUE(image.exists("backups"));
}

TEST_F(Unmount, TimeoutOfTheMountZeroAllowsOneTry)
{
    FakeClock clock;
    helper.answers({mounts_image(), {"EXIT_STATUS=25"}});
    ASSERT_NE(mount(0), nullptr);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(helper.runs().size(), 2U);
    EXPECT_EQ(clock.sleeps(), std::vector<double>{});
}

TEST_F(Unmount, MissingExitStatusIsSuccess)
{
    given_mount(mounts_image(), {{"done"}});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.lines_here(), lines_of_first_run({"done"}));
}

// With a mount path known

TEST_F(Unmount, WithMountPathSucceedsWhateverTheExitStatusAndDeletesTheMountPoint)
{
    for (const std::string status : {"5", "25", "0"}) {
        image.make_folder("backups");
        given_mount(mounts_image_with_path(), {{"EXIT_STATUS=" + status}});
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
        EXPECT_EQ(log.lines_here(), lines_of_first_run({"EXIT_STATUS=" + status}) +
                                        lines_of_deletion() + mount_path_lines);
        EXPECT_FALSE(image.exists("."));
        EXPECT_FALSE(record_view::has_mount(handle.get()));
        EXPECT_EQ(ixfs_last_error(handle.get()), EC_OK);
        ASSERT_TRUE(log.wait_for("INF - stopping validate thread, errno = 0\n"));
        log.take();
    }
}

TEST_F(Unmount, WithMountPathGoesOnWhenTheMountPointCannotBeDeleted)
{
    given_mount(mounts_image_with_path());
    const auto rmdir = interpose::on_rmdir.fails(EBUSY);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.with_message("INF - unmounted mount path: m/x\n").size(), 1U);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_OK);
}

TEST_F(Unmount, WithMountPathGoesOnWhenTheMountPointIsGone)
{
    given_mount(mounts_image_with_path());
    helper.does("rm -r '" + image.path() + "'");
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.lines_here(), lines_of_first_run({"EXIT_STATUS=0"}) +
                                    folder_delete_says.error("ERR - ACE_OS::opendir(" +
                                                             image.path() + ") failed, error = 2") +
                                    mount_path_lines);
}

TEST_F(Unmount, WithMountPathGoesOnWhenTheMountPointLiesBelowAFile)
{
    image.make_folder("lost/mount/backups");
    const std::string mount_point = image / "lost/mount";
    helper.answers({{"MNTPATH=/m/x", "MOUNTPOINT=" + mount_point, "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    log.take();
    helper.does("rm -r '" + image / "lost" + "'; touch '" + image / "lost" + "'");
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.with_tag("_ixfs_folder_delete()"),
              Lines{folder_delete_says.error("ERR - ACE_OS::opendir(" + mount_point +
                                             ") failed, error = 20")});
    EXPECT_EQ(log.with_message("ERR - still mounted, not deleted: " + mount_point + "\n"), Lines{});
    EXPECT_TRUE(image.exists("lost"));
}

TEST_F(Unmount, WithMountPathTriesToDeleteWhatTheMountPointsPathCannotReach)
{
    for (const int error : {EACCES, ELOOP}) {
        given_mount(mounts_image_with_path());
        const auto stat = interpose::on_stat.fails(error);
        const auto open = interpose::on_opendir.fails(error);
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
        EXPECT_EQ(log.with_tag("_ixfs_folder_delete()"),
                  Lines{folder_delete_says.error("ERR - ACE_OS::opendir(" + image.path() +
                                                 ") failed, error = " + std::to_string(error))});
    }
}

TEST_F(Unmount, WithMountPathGoesOnWhenTheMountPointsPathIsTooLong)
{
    const std::string mount_point = image / std::string(900, 'x');
    helper.answers({{"MNTPATH=/m/x", "MOUNTPOINT=" + mount_point, "EXIT_STATUS=0"}});
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(log.with_tag("_ixfs_folder_delete()"),
              Lines{folder_delete_says.error("ERR - ACE_OS::opendir(" + mount_point +
                                             ") failed, error = 36")});
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
}

TEST_F(Unmount, WithMountPathThatIsEmptyDeletesTheMountPointToo)
{
    given_mount({"MNTPATH=/", "MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.lines_here(), lines_of_first_run({"EXIT_STATUS=0"}) + lines_of_deletion() +
                                    unmount_says.info("INF - looking for mount path: ") +
                                    unmount_says.info("INF - unmounted mount path: "));
}

// Whether the mount point is still the root of a mounted file system

TEST_F(Unmount, WithMountPathDeletesNothingThatIsStillMounted)
{
    const auto mounted = RealMount::tmpfs(image.path());
    image.make_folder("backups");
    image.write("kept", "text");
    given_mount(mounts_image_with_path());
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.lines_here(),
              lines_of_first_run({"EXIT_STATUS=0"}) +
                  unmount_says.error("ERR - still mounted, not deleted: " + image.path()) +
                  mount_path_lines);
    EXPECT_EQ(image.read("kept"), "text");
    EXPECT_TRUE(image.exists("backups"));
    EXPECT_FALSE(record_view::has_mount(handle.get()));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_OK);
}

TEST_F(Unmount, WithMountPathDeletesNothingThatIsBoundThere)
{
    const TempDir stored;
    stored.make_folder("backups");
    stored.write("backups/disk", "data");
    const auto mounted = RealMount::bind(stored.path(), image.path());
    given_mount(mounts_image_with_path());
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.with_message("ERR - still mounted, not deleted: " + image.path() + "\n").size(),
              1U);
    EXPECT_EQ(stored.read("backups/disk"), "data");
}

TEST_F(Unmount, WithMountPathTheMountTableDecidesWhereTheKernelDoesNotTell)
{
    for (const bool is_mounted : {true, false}) {
        image.make_folder("backups");
        std::optional<RealMount> mounted;
        if (is_mounted)
            mounted.emplace(RealMount::bind(image.path(), image.path()));
        given_mount(mounts_image_with_path());
        const NoMountRoots old_kernel;
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
        EXPECT_EQ(image.exists("backups"), is_mounted);
        EXPECT_EQ(log.with_message(still_mounted().message).size(), is_mounted ? 1U : 0U);
    }
}

TEST_F(Unmount, WithMountPathTheMountTableDecidesWhereTheLookFails)
{
    given_mount(mounts_image_with_path());
    {
        const auto stat = interpose::on_stat.fails(EIO);
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    }
    EXPECT_EQ(log.lines_here(),
              lines_of_first_run({"EXIT_STATUS=0"}) + lines_of_deletion() + mount_path_lines);
}

TEST_F(Unmount, WithMountPathDeletesNothingWhenTheMountPointCannotBeLookedAt)
{
    given_mount(mounts_image_with_path());
    {
        const auto stat = interpose::on_stat.fails(EIO);
        const NoProcFile no_table("fdinfo/");
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    }
    EXPECT_EQ(log.lines_here(),
              lines_of_first_run({"EXIT_STATUS=0"}) + still_mounted() + mount_path_lines);
    EXPECT_TRUE(image.exists("backups"));
}

TEST_F(Unmount, WithMountPathDeletesNothingWhenTheMountPointCannotBeOpenedEither)
{
    given_mount(mounts_image_with_path());
    {
        const auto stat = interpose::on_stat.fails(ENOTCONN);
        const auto open = interpose::on_opendir.fails(ENOTCONN);
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    }
    EXPECT_EQ(log.lines_here(),
              lines_of_first_run({"EXIT_STATUS=0"}) + still_mounted() + mount_path_lines);
}

TEST_F(Unmount, WithMountPathDoesNotOpenWhatIsStillMounted)
{
    const auto mounted = RealMount::tmpfs(image.path());
    image.make_folder("backups");
    given_mount(mounts_image_with_path());
    const auto open = interpose::on_opendir.watch();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(open.calls(), 0) << "its server may hang";
}

TEST_F(Unmount, WithMountPathDeletesNothingThroughAMountThatComesBehindTheLook)
{
    given_mount(mounts_image_with_path());
    const TempDir stored;
    stored.write("disk", "data");
    std::optional<RealMount> mounted;
    {
        const auto open = interpose::on_opendir([&](const char* path) -> std::optional<int> {
            if (path == image.path() && !mounted)
                mounted.emplace(RealMount::bind(stored.path(), image.path()));
            return std::nullopt;
        });
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    }
    EXPECT_EQ(log.lines_here(),
              lines_of_first_run({"EXIT_STATUS=0"}) + still_mounted() + mount_path_lines);
    EXPECT_EQ(stored.read("disk"), "data");
}

TEST_F(Unmount, WithMountPathDoesNotFollowALinkThatIsTheMountPoint)
{
    const std::string link = image / "link";
    const TempDir outside;
    outside.make_folder("backups");
    std::filesystem::create_directory_symlink(outside.path(), link);
    helper.answers({{"MNTPATH=/m/x", "MOUNTPOINT=" + link, "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(
        log.with_tag("_ixfs_folder_delete()"),
        Lines{folder_delete_says.error("ERR - ACE_OS::opendir(" + link + ") failed, error = 20")});
    EXPECT_TRUE(outside.exists("backups"));
}

// A mount point inside of what the helper mounted

TEST_F(Unmount, WithMountPathKeepsAFolderOfTheFileSystemThatTheHelperMounted)
{
    given_folder_of_image();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.with_message(still_mounted("/inner").message), Lines{still_mounted("/inner")});
    EXPECT_TRUE(image.exists("inner/backups"));
    umount2(image.path().c_str(), MNT_DETACH);
}

TEST_F(Unmount, WithMountPathKeepsItWhenTheHelperMountedInAnOlderMountsPlace)
{
    std::filesystem::create_directory(mount_directory);
    const auto stale = RealMount::tmpfs(mount_directory);
    const std::string folder = std::string(mount_directory) + "/inner";
    helper.does("[ $1 = umount ] || { umount " + std::string(mount_directory) +
                "; mount -t tmpfs ixfs-test " + mount_directory + "; mkdir -p " + folder +
                "/backups; }");
    helper.answers({{"MNTPATH=/m/x", "MOUNTPOINT=" + folder, "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_TRUE(std::filesystem::exists(folder + "/backups"));
}

TEST_F(Unmount, WithMountPathDeletesTheFolderBelowWhenTheImageIsGone)
{
    image.make_folder("inner/below");
    given_folder_of_image();
    helper.does("umount '" + image.path() + "'");
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_TRUE(image.exists("backups"));
    EXPECT_FALSE(image.exists("inner"));
}

// The mount table writes a blank in a path as a number.
TEST_F(Unmount, WithMountPathKeepsAFolderOfAnyMountBelowTheBaseWhateverTheBasesPath)
{
    const TempDir elsewhere;
    elsewhere.make_folder("a b/old");
    const std::filesystem::path base = std::filesystem::path(mount_directory).parent_path();
    std::filesystem::remove_all(base);
    std::filesystem::create_directory_symlink(elsewhere / "a b", base);
    const auto mounted = RealMount::tmpfs(elsewhere / "a b/old");
    elsewhere.make_folder("a b/old/inner/backups");
    helper.answers(
        {{"MNTPATH=/m/x", "MOUNTPOINT=" + elsewhere / "a b/old/inner", "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_TRUE(elsewhere.exists("a b/old/inner/backups"));
    std::filesystem::remove(base);
}

TEST_F(Unmount, WithMountPathDeletesAFolderOfAnOlderMount)
{
    const auto mounted = RealMount::tmpfs(image.path());
    image.make_folder("inner/backups");
    helper.does("mount -o remount,noatime '" + image.path() + "'");
    helper.answers({{"MNTPATH=/m/x", "MOUNTPOINT=" + image / "inner", "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_FALSE(image.exists("inner"));
    EXPECT_TRUE(image.exists("."));
}

TEST_F(Unmount, WithMountPathKeepsAFolderOfAMountThatCameAfterTheHelper)
{
    image.make_folder("inner/backups");
    helper.answers({{"MNTPATH=/m/x", "MOUNTPOINT=" + image / "inner", "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    const auto mounted = RealMount::bind(image.path(), image.path());
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.with_message(still_mounted("/inner").message), Lines{still_mounted("/inner")});
    EXPECT_TRUE(image.exists("inner/backups"));
}

TEST_F(Unmount, WithMountPathKeepsAFolderOfAMountThatIsTakenAwayMeanwhile)
{
    given_folder_of_image();
    const auto open = interpose::on_open([&](const char* path, int) -> std::optional<int> {
        if (std::string(path).find("mountinfo") != std::string::npos)
            umount2(image.path().c_str(), MNT_DETACH);
        return std::nullopt;
    });
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_FALSE(image.exists("inner"));
    EXPECT_EQ(log.with_message(still_mounted("/inner").message), Lines{still_mounted("/inner")});
    EXPECT_EQ(log.with_tag("_ixfs_folder_delete()"), Lines{});
}

// The mount table of a process does not have what the process's root is a folder of.
TEST_F(Unmount, WithMountPathDeletesTheMountPointInAChangedRoot)
{
    for (const char* const folder : {"proc", "usr/varnis/var/ixfs", "m/backups"})
        image.make_folder(folder);
    const auto process_files = RealMount::bind("/proc", image / "proc");
    ChildProcess child(STDERR_FILENO, [this](ChildProcess::Parent&) -> int {
        const CannedHelper canned("MNTPATH=/m/x\nMOUNTPOINT=/m\nEXIT_STATUS=0\n");
        if (chroot(image.path().c_str()) != 0 || chdir("/") != 0)
            return -1;
        const Handle own(ixfs_init(0, nullptr, nullptr, nullptr, nullptr));
        ixfs_mount(own.get(), "a", "b", port, server, 0, nullptr);
        return ixfs_unmount(own.get());
    });
    EXPECT_EQ(child.wait(), EC_OK);
    EXPECT_FALSE(image.exists("m"));
}

TEST_F(Unmount, WithMountPathDeletesNothingWhenAMountTableCannotBeRead)
{
    const auto unmounts_without = [&](const char* at_mount, const char* at_unmount) {
        image.make_folder("backups");
        std::optional<NoProcFile> unreadable;
        if (at_mount != nullptr)
            unreadable.emplace(at_mount);
        given_mount(mounts_image_with_path());
        unreadable.reset();
        if (at_unmount != nullptr)
            unreadable.emplace(at_unmount);
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
        EXPECT_EQ(log.lines_here(),
                  lines_of_first_run({"EXIT_STATUS=0"}) + still_mounted() + mount_path_lines);
        EXPECT_TRUE(image.exists("backups"));
    };
    unmounts_without("mountinfo", nullptr);
    unmounts_without(nullptr, "mountinfo");
    unmounts_without(nullptr, "fdinfo/");
}

// A mount point that is no absolute path

TEST_F(Unmount, WithMountPathDeletesNothingInTheWorkingDirectory)
{
    const WorkingDirectory working_directory(image.path());
    image.make_folder("data/backups");
    helper.answers({{"MNTPATH=/m/x", "MOUNTPOINT=data", "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    log.take();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.with_tag("_ixfs_folder_delete()"), Lines{});
    EXPECT_EQ(log.with_message("ERR - not an absolute path, not deleted: data\n"),
              Lines{unmount_says.error("ERR - not an absolute path, not deleted: data")});
    const Lines lines = log.with_tag("ixfs_unmount()");
    EXPECT_EQ(Lines(lines.end() - 2, lines.end()), mount_path_lines);
    EXPECT_TRUE(image.exists("data/backups"));
}

TEST_F(Unmount, WithMountPathDeletesAMountPointThatTheHelperUnmounted)
{
    const auto mounted = RealMount::tmpfs(image.path());
    image.make_folder("backups");
    given_mount(mounts_image_with_path());
    helper.does("umount '" + image.path() + "'");
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_FALSE(image.exists("."));
}

// What is left

TEST_F(Unmount, LeavesNoLockAndNoDescriptor)
{
    const NoLocksLeft no_locks;
    const NoDescriptorsLeft no_descriptors;
    given_mount(mounts_image_with_path());
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
}

TEST_F(Unmount, MayBeFollowedByTheNextMount)
{
    for (int i = 0; i < 3; ++i) {
        given_mount(mounts_image());
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    }
    EXPECT_EQ(helper.runs().size(), 6U);
}

TEST_F(Unmount, IsDoneByTheHandlesEnd)
{
    given_mount(mounts_image());
    handle.reset();
    EXPECT_EQ(log.lines_here(), lines_of_first_run({"EXIT_STATUS=0"}));
    EXPECT_EQ(helper.runs().size(), 2U);
}

} // namespace
