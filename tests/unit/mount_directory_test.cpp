// The local mount directory: whether it was there, and what counts as that.
#include "mount_fixture.h"
#include "process_state.h"

#include <filesystem>
#include <string>

#include <sys/stat.h>

namespace
{

class MountDirectory : public MountTest
{
protected:
    // The lines of a mount with an image up to the first run of the helper.
    Lines setup_lines() const
    {
        const Lines lines = log.lines_here();
        Lines setup;
        for (const Line& line : lines) {
            if (line.message.find("INF - running command - ") == 0)
                break;
            setup.push_back(line);
        }
        return setup;
    }

    const std::string path = mount_directory;
    const Line waiting = mount_says.info("INF - waiting for mount mutex...");
    const Line already_there =
        mount_says.info("INF - Create mount dir " + path + " already exists.");
    const Line set_up = mount_says.info("INF - Successfully setup mount directory: " + path + ".");
};

TEST_F(MountDirectory, IsMadeForTheOwnerAlone)
{
    const mode_t umask_before = umask(0);
    mount();
    umask(umask_before);
    struct stat status {
    };
    ASSERT_EQ(::stat(mount_directory, &status), 0);
    EXPECT_EQ(status.st_mode, static_cast<mode_t>(S_IFDIR | 0700));
}

TEST_F(MountDirectory, ThatIsThereIsUsed)
{
    std::filesystem::create_directory(path);
    mount();
    EXPECT_EQ(setup_lines(), Lines{waiting} + folder_created_lines(mount_base, server, 0) +
                                 already_there + set_up);
}

TEST_F(MountDirectory, ThatIsNewCountsAsThereForItsParentsSake)
{
    mount();
    EXPECT_EQ(setup_lines(), Lines{waiting} + folder_created_lines(mount_base, server, 1) +
                                 already_there + set_up);
}

TEST_F(MountDirectory, OnlyErrnoTellsThatItIsThere)
{
    auto mkdir = interpose::on_mkdir.returns(0); // and errno untouched
    mount();
    EXPECT_EQ(setup_lines(), Lines{waiting} + folder_created_lines(mount_base, server, 4) + set_up);
    EXPECT_EQ(mkdir.calls(), 4);
}

TEST_F(MountDirectory, ServerNameWithSlashesMakesFolders)
{
    ixfs_mount(handle.get(), mount_cred, unmount_cred, port, "site/media1", 60, nullptr);
    EXPECT_TRUE(std::filesystem::is_directory("/usr/varnis/var/ixfs/site/media1"));
    EXPECT_EQ(helper.runs().at(0).back(), "/usr/varnis/var/ixfs/site/media1");
}

TEST_F(MountDirectory, ThatCannotBeMadeFailsTheMount)
{
    auto mkdir = interpose::on_mkdir([this](const char* segment, mode_t) -> std::optional<int> {
        if (segment != path)
            return std::nullopt;
        errno = EACCES;
        return -1;
    });
    EXPECT_EQ(mount(), nullptr);
    Lines made = folder_created_lines(mount_base, server, 1);
    made.pop_back();
    EXPECT_EQ(log.lines(),
              Lines{waiting} + made +
                  folder_create_says.info("ERR - ACE_OS::mkdir(): Could not create Parent (" +
                                          path + "), error: 13") +
                  mount_says.info("INF - Create mount dir " + path + " failed, error = 13."));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_MOUNT_DIRECTORY);
    EXPECT_EQ(helper.runs().size(), 0U);
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(MountDirectory, ParentThatCannotBeMadeFailsTheMount)
{
    auto mkdir = interpose::on_mkdir.fails(EROFS);
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(mkdir.calls(), 1);
    EXPECT_EQ(log.with_message("INF - Create mount dir " + path + " failed, error = 30.\n").size(),
              1U);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_MOUNT_DIRECTORY);
}

TEST_F(MountDirectory, ThatTimesOutIsTriedAHundredTimesAndTakenAsMade)
{
    int calls = 0;
    auto mkdir = interpose::on_mkdir([&](const char* segment, mode_t) -> std::optional<int> {
        if (segment != path)
            return std::nullopt;
        ++calls;
        errno = ETIME;
        return -1;
    });
    mount();
    EXPECT_EQ(calls, 100);
    EXPECT_EQ(setup_lines(), Lines{waiting} + folder_created_lines(mount_base, server, 1) + set_up);
    EXPECT_EQ(helper.runs().size(), 1U);
}

} // namespace
