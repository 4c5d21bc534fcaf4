// Mounting: each failure's lines and status, and what is left behind.
#include "memory_shortage.h"
#include "mount_fixture.h"
#include "process_state.h"
#include "real_mount.h"

#include <ace/Process_Mutex.h>

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace
{

class MountFailures : public MountTest
{
protected:
    // A failed mount leaves nothing but the handle, which a next mount may use.
    void TearDown() override
    {
        EXPECT_EQ(semaphore_sets().size(), 0U);
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
        EXPECT_EQ(ixfs_last_error(handle.get()), EC_OK) << "nothing was mounted";
        image.make_folder("backups");
        helper.answers({mounts_image()});
        EXPECT_NE(mount(), nullptr);
        MountTest::TearDown();
    }

    // A mount whose helper tells a mount path, and that holds no "backups".
    void given_dead_mount()
    {
        std::filesystem::remove(image / "backups");
        helper.answers({mounts_image_with_path(), {"EXIT_STATUS=0"}});
    }

    // Its lines up to the deletion of the mount point.
    Lines lines_before_deletion() const
    {
        return lines_before_mount_command() +
               lines_of_run(mount_says, shown_mount_command,
                            {"MNTPATH=/m/x", "MOUNTPOINT=" + image.path()}) +
               mount_says.info("MOUNTPOINT= MOUNTPOINT=" + image.path()) +
               mount_says.info("INF - response - EXIT_STATUS=0") +
               mount_says.info("INF - mount point: " + image.path()) +
               line_of_validation(image.path()) +
               validate_says.error("ERR - ACE_OS::stat(" + image.path() +
                                   "/backups) failed, error = 2") +
               lines_before_unmount_command() +
               lines_of_run(unmount_says, unmount_command(), {"EXIT_STATUS=0"});
    }
};

TEST_F(MountFailures, NoMemoryForTheRecord)
{
    {
        auto no_memory = interpose::on_allocation.fails(ENOMEM);
        EXPECT_EQ(mount(), nullptr);
    }
    EXPECT_EQ(log.lines(),
              Lines{mount_says.error("ERR - calloc failed for mount structure, error = 12")});
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_NO_MEMORY);
}

TEST_F(MountFailures, NoMemoryForAnArgument)
{
    // told apart by their lengths
    const std::string long_server(501, 's');
    const std::string long_mount_cred(603, 'm');
    const std::string long_unmount_cred(705, 'u');
    for (const auto& [text, what] :
         {std::pair(long_server, "server name"), std::pair(long_mount_cred, "credentials"),
          std::pair(long_unmount_cred, "credentials")}) {
        {
            const auto no_memory = MemoryShortage::for_copies_of(text);
            EXPECT_EQ(ixfs_mount(handle.get(), long_mount_cred.c_str(), long_unmount_cred.c_str(),
                                 port, long_server.c_str(), 60, nullptr),
                      nullptr);
        }
        EXPECT_EQ(log.take(), Lines{mount_says.error("ERR - allocation for " + std::string(what) +
                                                     " failed, error = 12")});
        EXPECT_EQ(ixfs_last_error(handle.get()), EC_NO_MEMORY);
    }
}

#ifndef IXFS_SANITIZER_DEFINES_NEW
TEST_F(MountFailures, NoMutexObject)
{
    {
        const MemoryShortage no_object(sizeof(ACE_Process_Mutex));
        EXPECT_EQ(mount(), nullptr);
    }
    EXPECT_EQ(log.lines(), Lines{mount_says.info(
                               "INF - Initialization failed for ACE_Process_Mutex, error = 12")});
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
    EXPECT_EQ(job_log.lines(), std::vector<std::string>{});
}
#endif

TEST_F(MountFailures, HelperThatMountsNothing)
{
    helper.answers({{"EXIT_STATUS=0"}});
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(log.lines(), lines_before_mount_command() +
                               lines_of_run(mount_says, shown_mount_command, {"EXIT_STATUS=0"}) +
                               mount_says.error("ERR - nothing is mounted"));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
}

TEST_F(MountFailures, MountPathThatWasLostStaysLostWhenAnEmptyOneFollows)
{
    const std::string path(501, 'p'); // of a length that nothing else has
    helper.answers({{"MNTPATH=/" + path, "MNTPATH=", "MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"},
                    {"EXIT_STATUS=0"}});
    {
        const auto no_memory = MemoryShortage::for_copies_of(path);
        EXPECT_EQ(mount(), nullptr);
    }
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_NO_MEMORY);
    EXPECT_EQ(helper.runs().size(), 2U) << "the mount is undone";
}

TEST_F(MountFailures, NoMemoryForTheMountPathUndoesTheMount)
{
    const std::string path(501, 'p'); // of a length that nothing else has
    helper.answers(
        {{"MNTPATH=/" + path, "MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"}, {"EXIT_STATUS=0"}});
    {
        const auto no_memory = MemoryShortage::for_copies_of(path);
        EXPECT_EQ(mount(), nullptr);
    }
    EXPECT_EQ(log.lines(),
              lines_before_mount_command() +
                  lines_of_run(mount_says, shown_mount_command, {"MNTPATH=/" + path}) +
                  mount_says.error("ERR - allocation for mount path failed, error = 12") +
                  mount_says.info("INF - response - MOUNTPOINT=" + image.path()) +
                  mount_says.info("MOUNTPOINT= MOUNTPOINT=" + image.path()) +
                  mount_says.info("INF - response - EXIT_STATUS=0") +
                  lines_before_unmount_command() +
                  lines_of_run(unmount_says, unmount_command(), {"EXIT_STATUS=0"}));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_NO_MEMORY);
}

TEST_F(MountFailures, MountWithoutBackupsIsUnmountedAndFails)
{
    given_dead_mount();
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(log.lines(), lines_before_deletion() + removed_folder_line(image.path()) +
                               unmount_says.info("INF - looking for mount path: m/x") +
                               unmount_says.info("INF - unmounted mount path: m/x"));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
    EXPECT_EQ(job_log.lines(),
              (std::vector<std::string>{"JBD - INF - waiting for mount mutex...\n",
                                        "JBD - INF - response - EXIT_STATUS=0\n"}));
    EXPECT_EQ(helper.runs().size(), 2U);
}

TEST_F(MountFailures, MountWithoutBackupsThatStaysMountedIsNotDeleted)
{
    given_dead_mount();
    const auto mounted = RealMount::tmpfs(image.path());
    image.write("kept", "text");
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(log.lines(),
              lines_before_deletion() +
                  unmount_says.error("ERR - still mounted, not deleted: " + image.path()) +
                  unmount_says.info("INF - looking for mount path: m/x") +
                  unmount_says.info("INF - unmounted mount path: m/x"));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
    EXPECT_TRUE(image.exists("kept"));
}

TEST_F(MountFailures, MountThatCannotBeLookedInto)
{
    helper.answers({mounts_image_with_path()});
    int looks = 0;
    {
        auto stat = interpose::on_stat([&](const char* path, struct stat*) {
            looks += path == image / "backups" && helper.runs().size() == 1;
            errno = ETIME;
            return std::optional<int>(-1);
        });
        EXPECT_EQ(mount(), nullptr);
    }
    EXPECT_EQ(looks, 1) << "a validation is not tried again";
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
    EXPECT_EQ(
        log.with_message("ERR - ACE_OS::stat(" + image.path() + "/backups) failed, error = 62\n")
            .size(),
        1U);
}

TEST_F(MountFailures, MountWithoutBackupsWhoseUnmountFailsToo)
{
    given_dead_mount();
    auto popen = interpose::on_popen.fails(EMFILE, 2); // the unmount's
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(log.with_tag("_ixfs_umount()").size(), 2U);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
}

} // namespace
