// Long command lines, mount directories and lines of the helper. Command lines are cut to 1,023
// bytes, as is what is said of directories; lines are read in pieces of that length.
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

constexpr std::size_t longest_text = 1023; // in a text buffer

// Letters, in an order that shows where a text was cut.
std::string letters(std::size_t length)
{
    std::string all;
    while (all.size() < length)
        all += static_cast<char>('a' + all.size() % 25);
    return all;
}

// A path of that length which begins with `start`, in segments that every file system takes.
std::string path(std::size_t length, std::string start)
{
    constexpr std::size_t segment = 100;
    const std::string all = letters(length);
    const std::size_t front = start.size();
    while (start.size() < length) {
        const bool begins_segment = (start.size() - front) % segment == 0;
        const bool is_last = start.size() + 1 == length;
        start += begins_segment && !is_last ? '/' : all[start.size()];
    }
    return start;
}

std::string as_text(const std::string& whole)
{
    return whole.substr(0, longest_text);
}

class MountBounds : public MountTest, public testing::WithParamInterface<std::size_t>
{
protected:
    using Texts = std::vector<std::string>;

    MountBounds() { handle = make_handle(IXFS_FLAG_UNMOUNT_CRED, &job_log); }

    char* mount_with(const std::string& credential, const std::string& forced_credential,
                     const std::string& media_server)
    {
        return ixfs_mount(handle.get(), credential.c_str(), forced_credential.c_str(), port,
                          media_server.c_str(), 60, nullptr);
    }

    static std::string mount_command(const std::string& credential, const std::string& media_server)
    {
        return "\"/usr/varnis/stowline/bin/ixfs\" mount -server " + media_server +
               " -port 40100 -timeout 60  -cred " + credential + " " + mount_base + "/" +
               media_server;
    }

    static std::string unmount_command_of(const std::string& credential,
                                          const std::string& media_server,
                                          const std::string& mount_point)
    {
        return "\"/usr/varnis/stowline/bin/ixfs\" umount -f -server " + media_server +
               " -port 40100 -cred " + credential + " " + mount_point;
    }

    // What an output line comes to: pieces of what a buffer takes.
    static Texts pieces(const std::string& line)
    {
        Texts found;
        for (std::size_t start = 0; start < line.size(); start += longest_text)
            found.push_back(line.substr(start, longest_text));
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

    // Letters that make up the length beside a text without them.
    static std::string beside(const std::string& rest) { return letters(GetParam() - rest.size()); }

    RecordedCommands commands;
};

// ---- Arguments ----------------------------------------------------------------------------------

TEST_P(MountBounds, MountCommand)
{
    helper.answers({mounts_image()});
    const std::string credential = beside(mount_command("", server));
    ASSERT_STREQ(mount_with(credential, unmount_cred, server), image.path().c_str());
    EXPECT_EQ(commands.lines(), Texts{as_text(mount_command(credential, server))});
    EXPECT_EQ(record_view::mount(handle.get()).mount_cred, credential);
}

TEST_P(MountBounds, UnmountCommand)
{
    helper.answers({mounts_image()});
    const std::string credential = beside(unmount_command_of("", server, image.path()));
    ASSERT_STREQ(mount_with(mount_cred, credential, server), image.path().c_str());
    EXPECT_EQ(record_view::mount(handle.get()).unmount_cred, credential);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(commands.lines(),
              (Texts{mount_command(mount_cred, server),
                     as_text(unmount_command_of(credential, server, image.path()))}));
}

TEST_P(MountBounds, MountDirectory)
{
    constexpr std::size_t longest_path = 4095; // that the kernel takes
    helper.answers({mounts_image()});
    const std::string directory = path(GetParam(), std::string(mount_base) + "/m");
    const std::string media_server = directory.substr(std::strlen(mount_base) + 1);
    const bool usable = directory.size() <= longest_path;
    EXPECT_EQ(mount_with(mount_cred, unmount_cred, media_server) != nullptr, usable);
    EXPECT_EQ(fs::exists(directory.substr(0, longest_path)), usable)
        << "the directory's path is not cut";
    const std::string said = as_text(directory);
    const Line expected =
        usable ? mount_says.info("INF - Successfully setup mount directory: " + said + ".")
               : mount_says.info("INF - Create mount dir " + said +
                                 " failed, error = " + std::to_string(ENAMETOOLONG) + ".");
    EXPECT_EQ(log.with_message(expected.message), Lines{expected});
}

// ---- Lines of the helper ------------------------------------------------------------------------

TEST_P(MountBounds, MountPointLine)
{
    const std::string line = path(GetParam(), "MOUNTPOINT=/nowhere");
    const std::string mount_point = as_text(line).substr(std::strlen("MOUNTPOINT="));
    helper.answers({{line, "EXIT_STATUS=0"}, {"EXIT_STATUS=0"}});
    EXPECT_EQ(std::string(mount()), mount_point);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(commands.lines().at(1),
              as_text(unmount_command_of(unmount_cred, server, mount_point)));
    EXPECT_EQ(responses(), joined(pieces(line), {"EXIT_STATUS=0", "EXIT_STATUS=0"}));
}

TEST_P(MountBounds, MountPointThatIsLookedInto)
{
    const std::string line = path(GetParam(), "MOUNTPOINT=" + image.path());
    const std::string mount_point = as_text(line).substr(std::strlen("MOUNTPOINT="));
    const std::string backups = as_text(mount_point + "/backups");
    fs::create_directories(backups);
    helper.answers({{"MNTPATH=/m/x", line, "EXIT_STATUS=0"}, {"EXIT_STATUS=0"}});
    EXPECT_EQ(std::string(mount()), mount_point);
    const Line looked =
        validate_says.info("INF - Validating name: " + backups + ", mount_point: " + mount_point);
    EXPECT_EQ(log.with_tag("_ixfs_mount_validate()"),
              (Lines{{looked.severity, looked.tag, looked.message.substr(0, 2047)}}));
    EXPECT_EQ(_ixfs_mount_validate(handle.get(), record_view::mount_of(handle.get())), 1);
}

TEST_P(MountBounds, MountPathLine)
{
    const std::string line = "MNTPATH=/" + letters(GetParam() - std::strlen("MNTPATH=/"));
    helper.answers({joined({line}, mounts_image()), {"EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    const std::string mnt_path = as_text(line).substr(std::strlen("MNTPATH=/"));
    EXPECT_EQ(record_view::mount(handle.get()).mnt_path, mnt_path);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.lines_here().back(),
              unmount_says.info("INF - unmounted mount path: " + mnt_path));
}

TEST_P(MountBounds, ExitStatusLine)
{
    const std::string line = "EXIT_STATUS=" + std::string(GetParam() - 13, '0') + "7";
    const bool is_whole = GetParam() <= longest_text;
    helper.answers({{"MOUNTPOINT=" + image.path(), line}, {"EXIT_STATUS=0"}});
    EXPECT_EQ(mount() != nullptr, !is_whole) << "the first piece says 0";
    EXPECT_EQ(responses().back(), as_text(line)) << "and ends the reading";
}

TEST_P(MountBounds, OtherLineOfAMount)
{
    const std::string text = letters(GetParam());
    helper.answers({joined({text}, mounts_image()), {"EXIT_STATUS=0"}});
    EXPECT_EQ(std::string(mount()), image.path());
    EXPECT_EQ(responses(), joined(pieces(text), mounts_image()));
}

TEST_P(MountBounds, MountPointAtTheEndOfALine)
{
    const std::string key = "MOUNTPOINT=";
    const std::string mount_point = "/nowhere/m";
    const std::string line =
        letters(GetParam() - key.size() - mount_point.size()) + key + mount_point;
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
    const std::string text = letters(GetParam());
    const std::string status = "EXIT_STATUS=" + std::string(GetParam() - 12, '0');
    given_mount(mounts_image(), {{text, status}});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(responses(), joined(pieces(text), pieces(status)));
    EXPECT_EQ(job_log.lines().back(), "JBD - INF - response - " + as_text(status) + "\n");
}

INSTANTIATE_TEST_SUITE_P(, MountBounds, testing::Values(1023U, 1024U, 5000U),
                         [](const auto& test) { return std::to_string(test.param) + "Bytes"; });

} // namespace
