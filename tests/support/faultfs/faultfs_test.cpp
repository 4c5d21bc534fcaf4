// What the mounted file system shows to system calls: the source, and each fault in turn.
#include "fault_mount.h"
#include "temp_dir.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <set>
#include <stdexcept>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace faultfs
{

namespace
{

// The error number of a system call just made, 0 after a success.
template <typename Result>
int error_of(Result result)
{
    return result == -1 ? errno : 0;
}

class FaultfsTest : public testing::Test
{
protected:
    FaultfsTest()
    {
        dir.make_folder("source/backups");
        dir.make_folder("mount");
        fs.emplace(dir / "source", dir / "mount");
    }

    void TearDown() override
    {
        EXPECT_EQ(fs->end(), 0);
        EXPECT_TRUE(std::filesystem::is_empty(dir / "mount")) << "unmounted";
    }

    std::string mounted(const std::string& name) const { return dir / ("mount/" + name); }

    int access_error(const std::string& name) const
    {
        return error_of(access(mounted(name).c_str(), R_OK));
    }

    std::set<std::string> names() const
    {
        std::set<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(dir / "mount"))
            found.insert(entry.path().filename());
        return found;
    }

    const TempDir dir; // holds "source", and as "mount" what the file system makes of it
    std::optional<FaultMount> fs;
};

TEST_F(FaultfsTest, ShowsTheSourceAndWritesToIt)
{
    dir.write("source/old", "text");
    EXPECT_EQ(dir.read("mount/old"), "text");
    dir.write("mount/backups/new", std::string(300'000, 'x'));
    EXPECT_EQ(dir.read("source/backups/new"), std::string(300'000, 'x'));
    dir.write("mount/old", "less");
    EXPECT_EQ(dir.read("source/old"), "less");
    ASSERT_EQ(mkdir(mounted("folder").c_str(), 0750), 0);
    EXPECT_EQ(std::filesystem::status(dir / "source/folder").permissions(),
              std::filesystem::perms{0750});
    EXPECT_EQ(names(), (std::set<std::string>{"backups", "folder", "old"}));
    EXPECT_EQ(std::filesystem::remove_all(mounted("backups")), 2U);
    EXPECT_FALSE(dir.exists("source/backups"));
}

TEST_F(FaultfsTest, HardLinksShareTheirInode)
{
    dir.write("mount/flat", "data");
    ASSERT_EQ(link(mounted("flat").c_str(), mounted("linked").c_str()), 0);
    EXPECT_TRUE(std::filesystem::equivalent(mounted("flat"), mounted("linked")));
    EXPECT_TRUE(std::filesystem::equivalent(dir / "source/flat", dir / "source/linked"));
}

TEST_F(FaultfsTest, HardLinksMayBeNumberedApart)
{
    fs.reset();
    fs.emplace(dir / "source", dir / "mount", FaultMount::Numbers::by_name);
    dir.write("mount/flat", "data");
    ASSERT_EQ(link(mounted("flat").c_str(), mounted("linked").c_str()), 0);
    EXPECT_FALSE(std::filesystem::equivalent(mounted("flat"), mounted("linked")));
    EXPECT_TRUE(std::filesystem::equivalent(dir / "source/flat", dir / "source/linked"));
}

TEST_F(FaultfsTest, FailsSoManyCallsAndNoMore)
{
    const Fault slow = fs->add("access,mkdir ETIME times=3 /backups*");
    EXPECT_EQ(access_error("backups"), ETIME);
    EXPECT_EQ(access_error("backups"), ETIME);
    EXPECT_EQ(error_of(mkdir(mounted("backups/new").c_str(), 0700)), ETIME);
    EXPECT_FALSE(dir.exists("source/backups/new"));
    EXPECT_EQ(error_of(mkdir(mounted("backups/new").c_str(), 0700)), 0);
    EXPECT_EQ(access_error("backups"), 0);
    EXPECT_EQ(slow.count(), (Count{5, 3}));
}

TEST_F(FaultfsTest, TheFirstRuleThatFailsACallKeepsItFromTheNext)
{
    const Fault first = fs->add("access ETIME times=1 /backups");
    const Fault second = fs->add("access EIO *");
    EXPECT_EQ(access_error("backups"), ETIME);
    EXPECT_EQ(access_error("backups"), EIO);
    EXPECT_EQ(first.count(), (Count{2, 1}));
    EXPECT_EQ(second.count(), (Count{1, 1}));
}

TEST_F(FaultfsTest, AFileAppearsLate)
{
    dir.write("source/late", "text");
    const Fault hidden = fs->add("lookup ENOENT times=2 /late");
    EXPECT_EQ(access_error("late"), ENOENT);
    EXPECT_EQ(access_error("late"), ENOENT);
    EXPECT_EQ(access_error("late"), 0);
    EXPECT_EQ(hidden.count().fired, 2U);
}

TEST_F(FaultfsTest, LinkFailsForTheNameThatTheRuleTells)
{
    dir.write("mount/flat", "data");
    const Fault full = fs->add("link EMLINK /one");
    EXPECT_EQ(error_of(link(mounted("flat").c_str(), mounted("one").c_str())), EMLINK);
    EXPECT_EQ(error_of(link(mounted("flat").c_str(), mounted("two").c_str())), 0);
    EXPECT_EQ(full.count(), (Count{1, 1}));
}

TEST_F(FaultfsTest, AReadOnlyImageRefusesAllThatWrites)
{
    dir.write("mount/file", "data");
    const Fault read_only = fs->add("modify EROFS *");
    const std::string file = mounted("file");
    const std::string fresh = mounted("fresh");
    EXPECT_EQ(error_of(mkdir(fresh.c_str(), 0700)), EROFS);
    EXPECT_EQ(error_of(rmdir(mounted("backups").c_str())), EROFS);
    EXPECT_EQ(error_of(unlink(file.c_str())), EROFS);
    EXPECT_EQ(error_of(link(file.c_str(), fresh.c_str())), EROFS);
    EXPECT_EQ(error_of(open(file.c_str(), O_WRONLY | O_TRUNC)), EROFS);
    EXPECT_EQ(error_of(open(fresh.c_str(), O_WRONLY | O_CREAT, 0600)), EROFS);
    EXPECT_EQ(read_only.count().fired, 6U);
    EXPECT_EQ(dir.read("mount/file"), "data");
    EXPECT_EQ(names(), (std::set<std::string>{"backups", "file"}));
}

TEST_F(FaultfsTest, AServerThatDiesFailsAllCallsEvenOnOpenFiles)
{
    dir.write("source/file", "data");
    const int file = open(mounted("file").c_str(), O_RDONLY);
    const Fault dead = fs->add("any ENOTCONN *");
    std::array<char, 4> bytes{};
    EXPECT_EQ(error_of(read(file, bytes.data(), bytes.size())), ENOTCONN);
    EXPECT_EQ(access_error("backups"), ENOTCONN);
    EXPECT_EQ(error_of(mkdir(mounted("new").c_str(), 0700)), ENOTCONN);
    EXPECT_ANY_THROW(names());
    EXPECT_GE(dead.count().fired, 4U);
    close(file);
}

TEST_F(FaultfsTest, ReadingFailsAtAnOffset)
{
    dir.write("source/file", std::string(1000, 'x'));
    const Fault bad_sector = fs->add("read EIO from=700 times=1 /file");
    const int file = open(mounted("file").c_str(), O_RDONLY);
    std::array<char, 4096> bytes{};
    EXPECT_EQ(read(file, bytes.data(), 100), 100);
    EXPECT_EQ(read(file, bytes.data(), bytes.size()), 600);
    EXPECT_EQ(error_of(read(file, bytes.data(), bytes.size())), EIO);
    EXPECT_EQ(read(file, bytes.data(), bytes.size()), 300);
    EXPECT_EQ(bad_sector.count().fired, 1U);
    close(file);
}

TEST_F(FaultfsTest, TheDiskIsFullInTheMiddleOfAWrite)
{
    const Fault full = fs->add("write ENOSPC from=10 /backups/*");
    const int file = open(mounted("backups/file").c_str(), O_WRONLY | O_CREAT, 0600);
    EXPECT_EQ(write(file, "0123456789abcdef", 16), 10);
    EXPECT_EQ(error_of(write(file, "abcdef", 6)), ENOSPC);
    EXPECT_EQ(dir.read("source/backups/file"), "0123456789");
    EXPECT_EQ(full.count().fired, 1U);
    close(file);
}

TEST_F(FaultfsTest, EndsWhileFilesAreOpen)
{
    dir.write("source/file", "data");
    const int file = open(mounted("file").c_str(), O_RDONLY);
    EXPECT_EQ(fs->end(), 0);
    char byte = 0;
    EXPECT_EQ(error_of(read(file, &byte, 1)), ENOTCONN);
    close(file);
}

TEST_F(FaultfsTest, ServesItsSourceWhenThatIsCovered)
{
    dir.write("source/file", "text");
    ASSERT_EQ(mount((dir / "mount").c_str(), (dir / "source").c_str(), nullptr, MS_BIND, nullptr),
              0);
    EXPECT_EQ(dir.read("source/file"), "text");
    EXPECT_EQ(umount((dir / "source").c_str()), 0);
}

TEST_F(FaultfsTest, RulesThatMakeNoSenseAreRefused)
{
    for (const char* const rule :
         {"", "access", "access EIO", "acces EIO *", "access EFUN *", "access EIO time=1 *",
          "access EIO times=x *", "access EIO times= *", "access EIO * *"})
        EXPECT_THROW(static_cast<void>(fs->add(rule)), std::invalid_argument) << rule;
    EXPECT_EQ(access_error("backups"), 0);
}

TEST_F(FaultfsTest, AMountThatCannotBeMadeIsTold)
{
    EXPECT_THROW(FaultMount(dir / "nowhere", dir / "source"), std::runtime_error);
    EXPECT_THROW(FaultMount(dir / "source", dir / "nowhere"), std::runtime_error);
}

} // namespace

} // namespace faultfs
