// Long servers, credentials, mount points and helper lines. Command lines are cut to 1,023 bytes, as
// are mount points; lines of the helper are read in pieces of that length.
#include "bounds.h"
#include "mount_fixture.h"
#include "record_view.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;

class MountBounds : public MountTest, public testing::WithParamInterface<unsigned int>
{
protected:
    using Texts = std::vector<std::string>;

    MountBounds() { handle = make_handle(IXFS_FLAG_UNMOUNT_CRED, &job_log); }

    char* mount_with(const std::string& credential, const std::string& forced_credential,
                     const std::string& media_server, const char* reserved = nullptr)
    {
        return ixfs_mount(handle.get(), credential.c_str(), forced_credential.c_str(), port,
                          media_server.c_str(), 60, reserved);
    }

    static std::string mount_command(const std::string& credential, const std::string& media_server)
    {
        return bounds::as_text("\"/usr/varnis/stowline/bin/ixfs\" mount -server " + media_server +
                               " -port 40100 -timeout 60  -cred " + credential + " " + mount_base +
                               "/" + media_server);
    }

    static std::string unmount_command_of(const std::string& credential,
                                          const std::string& media_server,
                                          const std::string& mount_point)
    {
        return bounds::as_text("\"/usr/varnis/stowline/bin/ixfs\" umount -f -server " +
                               media_server + " -port 40100 -cred " + credential + " " +
                               mount_point);
    }

    // What an output line comes to: pieces of what a buffer takes.
    static Texts pieces(const std::string& line)
    {
        Texts found;
        for (std::size_t start = 0; start < line.size(); start += bounds::longest_text)
            found.push_back(line.substr(start, bounds::longest_text));
        return found;
    }

    // The responses of all runs so far.
    Texts responses() const
    {
        const std::string start = "INF - response - ";
        Texts found;
        for (const Line& line : log.lines()) {
            if (line.message.compare(0, start.size(), start) == 0)
                found.push_back(
                    line.message.substr(start.size(), line.message.size() - start.size() - 1));
        }
        return found;
    }

    static Texts joined(Texts left, const Texts& right)
    {
        left.insert(left.end(), right.begin(), right.end());
        return left;
    }

    const std::string text = bounds::text(GetParam());
    RecordedCommands commands;
};

// ---- Arguments ----------------------------------------------------------------------------------

TEST_P(MountBounds, MountCredential)
{
    helper.answers({mounts_image()});
    ASSERT_STREQ(mount_with(text, unmount_cred, server), image.path().c_str());
    EXPECT_EQ(commands.lines(), Texts{mount_command(text, server)});
    EXPECT_EQ(record_view::mount(handle.get()).mount_cred, text);
}

TEST_P(MountBounds, UnmountCredential)
{
    helper.answers({mounts_image()});
    ASSERT_STREQ(mount_with(mount_cred, text, server), image.path().c_str());
    EXPECT_EQ(record_view::mount(handle.get()).unmount_cred, text);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(commands.lines(), (Texts{mount_command(mount_cred, server),
                                       unmount_command_of(text, server, image.path())}));
}

TEST_P(MountBounds, ServerOfManySegments)
{
    helper.answers({mounts_image()});
    const std::string media_server = bounds::path(GetParam(), "m");
    const std::string directory = std::string(mount_base) + "/" + media_server;
    const bool usable = directory.size() <= bounds::longest_path;
    ASSERT_EQ(mount_with(mount_cred, unmount_cred, media_server) != nullptr, usable);
    if (!usable) {
        EXPECT_EQ(ixfs_last_error(handle.get()), EC_MOUNT_DIRECTORY);
        EXPECT_EQ(commands.lines(), Texts{});
        return;
    }
    EXPECT_TRUE(fs::is_directory(directory)) << "the directory's path is not cut";
    EXPECT_EQ(record_view::mount(handle.get()).server, media_server);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(commands.lines(),
              (Texts{mount_command(mount_cred, media_server),
                     unmount_command_of(unmount_cred, media_server, image.path())}));
}

TEST_P(MountBounds, ServerOfOneSegmentHasNoDirectory)
{
    EXPECT_EQ(mount_with(mount_cred, unmount_cred, text), nullptr);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_MOUNT_DIRECTORY);
    EXPECT_EQ(log.lines().back(),
              mount_says.info("INF - Create mount dir " +
                              bounds::as_text(std::string(mount_base) + "/" + text) +
                              " failed, error = " + std::to_string(ENAMETOOLONG) + "."));
}

TEST_P(MountBounds, ReservedArgumentIsIgnored)
{
    helper.answers({mounts_image()});
    EXPECT_STREQ(mount_with(mount_cred, unmount_cred, server, text.c_str()), image.path().c_str());
    EXPECT_EQ(commands.lines(), Texts{mount_command(mount_cred, server)});
}

TEST_P(MountBounds, MinimalContextKeepsAllWhole)
{
    ASSERT_EQ(ixfs_recreate_minimal_context(handle.get(), text.c_str(), text.c_str(), port,
                                            text.c_str(), 60, text.c_str()),
              0);
    EXPECT_EQ(record_view::mount(handle.get()).server, text);
    EXPECT_EQ(record_view::mount(handle.get()).mount_cred, text);
    EXPECT_EQ(record_view::mount(handle.get()).unmount_cred, text);
    EXPECT_EQ(record_view::mount(handle.get()).mnt_path, text);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_INVALID_PARAMETER);
}

// ---- Lines of the helper ------------------------------------------------------------------------

TEST_P(MountBounds, MountPointLine)
{
    const std::string line = bounds::path(GetParam(), "MOUNTPOINT=/nowhere");
    const std::string mount_point = bounds::as_text(line).substr(std::strlen("MOUNTPOINT="));
    helper.answers({{line, "EXIT_STATUS=0"}, {"EXIT_STATUS=0"}});
    EXPECT_EQ(std::string(mount()), mount_point);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(commands.lines().at(1), unmount_command_of(unmount_cred, server, mount_point));
    EXPECT_EQ(responses(), joined(pieces(line), {"EXIT_STATUS=0", "EXIT_STATUS=0"}));
}

TEST_P(MountBounds, MountPointOfAFailedUnmount)
{
    const std::string line = bounds::path(GetParam(), "MOUNTPOINT=/nowhere");
    const std::string mount_point = bounds::as_text(line).substr(std::strlen("MOUNTPOINT="));
    helper.answers({{line, "EXIT_STATUS=0"}, {"EXIT_STATUS=3"}});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_HELPER_FAILED);
    const std::string none = std::to_string(ENOENT);
    EXPECT_EQ(log.with_tag("_ixfs_umount()"),
              (Lines{local_unmount_says.info("INF - attempting to umount -f (" + mount_point + ")"),
                     local_unmount_says.error("ERR - umount failed for " + mount_point +
                                              ", errno = " + none)}));
    EXPECT_EQ(log.with_tag("_ixfs_folder_delete()"),
              (Lines{folder_delete_says.error("ERR - ACE_OS::opendir(" + mount_point +
                                              ") failed, error = " + none)}));
}

TEST_P(MountBounds, MountPointThatIsLookedInto)
{
    const std::string line = bounds::path(GetParam(), "MOUNTPOINT=" + image.path());
    const std::string mount_point = bounds::as_text(line).substr(std::strlen("MOUNTPOINT="));
    const std::string backups = bounds::as_text(mount_point + "/backups");
    fs::create_directories(backups);
    helper.answers({{"MNTPATH=/m/x", line, "EXIT_STATUS=0"}, {"EXIT_STATUS=0"}});
    EXPECT_EQ(std::string(mount()), mount_point);
    const Line looked =
        validate_says.info("INF - Validating name: " + backups + ", mount_point: " + mount_point);
    EXPECT_EQ(log.with_tag("_ixfs_mount_validate()"), bounds::as_logged({looked}));
    EXPECT_EQ(_ixfs_mount_validate(handle.get(), record_view::mount_of(handle.get())), 1);
}

TEST_P(MountBounds, MountPathLine)
{
    const std::string line = "MNTPATH=/" + bounds::text(GetParam() - std::strlen("MNTPATH=/"));
    helper.answers({joined({line}, mounts_image()), {"EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    const std::string mnt_path = bounds::as_text(line).substr(std::strlen("MNTPATH=/"));
    EXPECT_EQ(record_view::mount(handle.get()).mnt_path, mnt_path);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.lines_here().back(),
              unmount_says.info("INF - unmounted mount path: " + mnt_path));
}

TEST_P(MountBounds, ExitStatusLine)
{
    const std::string line = "EXIT_STATUS=" + std::string(GetParam() - 13, '0') + "7";
    const bool is_whole = GetParam() <= bounds::longest_text;
    helper.answers({{"MOUNTPOINT=" + image.path(), line}, {"EXIT_STATUS=0"}});
    EXPECT_EQ(mount() != nullptr, !is_whole) << "the first piece says 0";
    EXPECT_EQ(responses().back(), bounds::as_text(line)) << "and ends the reading";
}

TEST_P(MountBounds, OtherLineOfAMount)
{
    helper.answers({joined({text}, mounts_image()), {"EXIT_STATUS=0"}});
    EXPECT_EQ(std::string(mount()), image.path());
    EXPECT_EQ(responses(), joined(pieces(text), mounts_image()));
}

TEST_P(MountBounds, MountPointAtTheEndOfALine)
{
    const std::string key = "MOUNTPOINT=";
    const std::string mount_point = "/nowhere/m";
    const std::string line =
        bounds::text(GetParam() - key.size() - mount_point.size()) + key + mount_point;
    std::string told; // what a piece tells that holds all of the key
    for (const std::string& piece : pieces(line)) {
        if (piece.find(key) != std::string::npos)
            told = piece.substr(piece.find(key) + key.size());
    }
    helper.answers({{line, "EXIT_STATUS=0"}, {"EXIT_STATUS=0"}});
    const char* const result = mount();
    EXPECT_EQ(result != nullptr ? result : "", told);
    EXPECT_EQ(responses(), joined(pieces(line), {"EXIT_STATUS=0"}));
}

TEST_P(MountBounds, LinesOfAnUnmount)
{
    const std::string status = "EXIT_STATUS=" + std::string(GetParam() - 12, '0');
    given_mount(mounts_image(), {{text, status}});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(responses(), joined(pieces(text), pieces(status)));
    EXPECT_EQ(job_log.lines().back(), "JBD - INF - response - " + bounds::as_text(status) + "\n");
}

INSTANTIATE_TEST_SUITE_P(, MountBounds, bounds::lengths, bounds::length_name);

} // namespace
