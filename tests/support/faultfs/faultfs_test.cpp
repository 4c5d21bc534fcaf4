// What the mounted file system shows to system calls: the source, and each fault in turn.
#include "faultfs_fixture.h"

#include <array>
#include <cstdlib>
#include <set>
#include <stdexcept>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace faultfs
{

namespace
{

std::set<std::string> names_in(const std::filesystem::path& folder)
{
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.insert(entry.path().filename());
    return names;
}

TEST_F(FaultfsTest, ShowsTheSourceAndWritesToIt)
{
    dir.write("source/old", "text");
    EXPECT_EQ(dir.read("mount/old"), "text");
    dir.write("mount/backups/new", std::string(300'000, 'x'));
    EXPECT_EQ(dir.read("source/backups/new"), std::string(300'000, 'x'));
    ASSERT_EQ(::mkdir(mounted("folder").c_str(), 0750), 0);
    EXPECT_EQ(std::filesystem::status(source() / "folder").permissions(),
              std::filesystem::perms{0750});
    ASSERT_EQ(::symlink("old", mounted("link").c_str()), 0);
    EXPECT_EQ(std::filesystem::read_symlink(mounted("link")), "old");
    EXPECT_EQ(dir.read("mount/link"), "text");
    ASSERT_EQ(::truncate(mounted("old").c_str(), 2), 0);
    EXPECT_EQ(dir.read("source/old"), "te");
    EXPECT_EQ(names_in(fs().path()), (std::set<std::string>{"backups", "folder", "link", "old"}));
}

TEST_F(FaultfsTest, ListsAFolderOfManyNames)
{
    std::set<std::string> names;
    for (int i = 0; i < 500; ++i)
        names.insert("a file with a name of some length " + std::to_string(i));
    for (const std::string& name : names)
        dir.write("source/backups/" + name, "");
    EXPECT_EQ(names_in(mounted("backups")), names);
}

TEST_F(FaultfsTest, MovesAndRemoves)
{
    std::filesystem::create_directories(mounted("a/b"));
    dir.write("mount/a/b/file", "text");
    std::filesystem::rename(mounted("a"), mounted("c"));
    EXPECT_EQ(dir.read("mount/c/b/file"), "text");
    EXPECT_FALSE(std::filesystem::exists(mounted("a")));
    EXPECT_EQ(std::filesystem::remove_all(mounted("c")), 3U);
    EXPECT_FALSE(std::filesystem::exists(source() / "c"));
    dir.write("mount/c", "again");
    EXPECT_EQ(dir.read("mount/c"), "again");
}

TEST_F(FaultfsTest, HardLinksShareTheirInode)
{
    dir.write("mount/flat", "data");
    ASSERT_EQ(::link(mounted("flat").c_str(), mounted("linked").c_str()), 0);
    struct stat inside;
    struct stat outside;
    ASSERT_EQ(::stat(mounted("linked").c_str(), &inside), 0);
    ASSERT_EQ(::stat((source() / "flat").c_str(), &outside), 0);
    EXPECT_EQ(inside.st_ino, outside.st_ino);
    EXPECT_EQ(inside.st_nlink, 2U);
    ASSERT_EQ(::unlink(mounted("flat").c_str()), 0);
    ASSERT_EQ(::stat(mounted("linked").c_str(), &inside), 0);
    EXPECT_EQ(inside.st_nlink, 1U);
}

TEST_F(FaultfsTest, AccessTimesOut99Times)
{
    const Fault slow = fs().add("access ETIME times=99 /backups");
    const Fault calls = fs().add("access pass /backups");
    for (int call = 1; call <= 99; ++call)
        ASSERT_EQ(error_of(::access(mounted("backups").c_str(), R_OK)), ETIME) << call;
    EXPECT_EQ(calls.count().seen, 0U);
    EXPECT_EQ(::access(mounted("backups").c_str(), R_OK), 0);
    EXPECT_EQ(slow.count().fired, 99U);
    EXPECT_EQ(calls.count().seen, 1U);
}

TEST_F(FaultfsTest, MkdirTimesOut100TimesAndMakesNothing)
{
    const Fault slow = fs().add("mkdir ETIME times=100 /backups/*");
    for (int call = 1; call <= 100; ++call)
        ASSERT_EQ(error_of(::mkdir(mounted("backups/new").c_str(), 0700)), ETIME) << call;
    EXPECT_FALSE(std::filesystem::exists(source() / "backups/new"));
    EXPECT_EQ(::mkdir(mounted("backups/new").c_str(), 0700), 0);
    EXPECT_EQ(slow.count().fired, 100U);
    EXPECT_EQ(slow.count().seen, 101U);
}

// The kernel repeats a lookup that fails for a name in its cache.
TEST_F(FaultfsTest, EachFailedLookupFailsOneSystemCall)
{
    const Fault slow = fs().add("lookup ETIME after=2 times=3 /backups");
    std::array<int, 7> errors{};
    for (int& error : errors)
        error = error_of(::access(mounted("backups").c_str(), R_OK));
    EXPECT_EQ(errors, (std::array<int, 7>{0, 0, ETIME, ETIME, ETIME, 0, 0}));
    EXPECT_EQ(slow.count().seen, 7U);
}

TEST_F(FaultfsTest, AFileAppearsLate)
{
    dir.write("source/late", "text");
    const Fault hidden = fs().add("lookup ENOENT times=2 /late");
    EXPECT_EQ(names_in(fs().path()), std::set<std::string>{"backups"});
    EXPECT_EQ(error_of(::access(mounted("late").c_str(), R_OK)), ENOENT);
    EXPECT_EQ(error_of(::access(mounted("late").c_str(), R_OK)), ENOENT);
    EXPECT_EQ(::access(mounted("late").c_str(), R_OK), 0);
    EXPECT_EQ(names_in(fs().path()), (std::set<std::string>{"backups", "late"}));
    EXPECT_EQ(hidden.count().fired, 2U);
}

TEST_F(FaultfsTest, LinkFailsForTheNameThatTheRuleTells)
{
    dir.write("mount/flat", "data");
    const Fault full = fs().add("link EMLINK /one");
    const Fault unsupported = fs().add("link EPERM /two");
    EXPECT_EQ(error_of(::link(mounted("flat").c_str(), mounted("one").c_str())), EMLINK);
    EXPECT_EQ(error_of(::link(mounted("flat").c_str(), mounted("two").c_str())), EPERM);
    EXPECT_EQ(error_of(::link(mounted("flat").c_str(), mounted("three").c_str())), 0);
    EXPECT_EQ(std::filesystem::hard_link_count(mounted("flat")), 2U);
}

TEST_F(FaultfsTest, AReadOnlyImageRefusesAllThatWrites)
{
    dir.write("mount/file", "data");
    const Fault read_only = fs().add("modify EROFS *");
    const std::string file = mounted("file");
    const std::string folder = mounted("backups");
    const std::string fresh = mounted("fresh");
    EXPECT_EQ(error_of(::mkdir(fresh.c_str(), 0700)), EROFS);
    EXPECT_EQ(error_of(::rmdir(folder.c_str())), EROFS);
    EXPECT_EQ(error_of(::unlink(file.c_str())), EROFS);
    EXPECT_EQ(error_of(::link(file.c_str(), fresh.c_str())), EROFS);
    EXPECT_EQ(error_of(::symlink("x", fresh.c_str())), EROFS);
    EXPECT_EQ(error_of(::rename(file.c_str(), fresh.c_str())), EROFS);
    EXPECT_EQ(error_of(::chmod(file.c_str(), 0600)), EROFS);
    EXPECT_EQ(error_of(::truncate(file.c_str(), 0)), EROFS);
    EXPECT_EQ(error_of(::open(file.c_str(), O_WRONLY | O_TRUNC)), EROFS);
    EXPECT_EQ(error_of(::open(fresh.c_str(), O_WRONLY | O_CREAT, 0600)), EROFS);
    EXPECT_EQ(read_only.count().fired, 10U);
    EXPECT_EQ(dir.read("mount/file"), "data");
    EXPECT_EQ(names_in(fs().path()), (std::set<std::string>{"backups", "file"}));
}

TEST_F(FaultfsTest, AServerDiesAfterSoManyCalls)
{
    dir.write("source/file", "data");
    const Fault all = fs().add("any pass *");
    const UniqueFd file(::open(mounted("file").c_str(), O_RDONLY));
    EXPECT_EQ(all.count().seen, 2U) << "lookup and open";

    const Fault dead = fs().add("any ENOTCONN after=3 *");
    EXPECT_EQ(::access(mounted("backups").c_str(), R_OK), 0) << "lookup and access";
    EXPECT_EQ(error_of(::access(mounted("backups").c_str(), R_OK)), ENOTCONN) << "access";
    std::array<char, 4> bytes;
    EXPECT_EQ(error_of(static_cast<int>(::read(file.get(), bytes.data(), bytes.size()))), ENOTCONN);
    EXPECT_EQ(error_of(::mkdir(mounted("new").c_str(), 0700)), ENOTCONN);
    EXPECT_EQ(dead.count().fired, 3U);
}

TEST_F(FaultfsTest, ReadingFailsAtAnOffset)
{
    dir.write("source/file", std::string(1000, 'x'));
    const Fault bad_sector = fs().add("read EIO from=700 times=1 /file");
    const UniqueFd file(::open(mounted("file").c_str(), O_RDONLY));
    std::array<char, 4096> bytes;
    EXPECT_EQ(::read(file.get(), bytes.data(), 100), 100);
    EXPECT_EQ(::read(file.get(), bytes.data(), bytes.size()), 600);
    EXPECT_EQ(error_of(static_cast<int>(::read(file.get(), bytes.data(), bytes.size()))), EIO);
    EXPECT_EQ(::read(file.get(), bytes.data(), bytes.size()), 300);
    EXPECT_EQ(bad_sector.count().fired, 1U);
}

TEST_F(FaultfsTest, TheDiskIsFullInTheMiddleOfAWrite)
{
    const Fault full = fs().add("write ENOSPC from=10 /backups/*");
    const UniqueFd file(::open(mounted("backups/file").c_str(), O_WRONLY | O_CREAT, 0600));
    EXPECT_EQ(::write(file.get(), "0123456789abcdef", 16), 10);
    EXPECT_EQ(error_of(static_cast<int>(::write(file.get(), "abcdef", 6))), ENOSPC);
    EXPECT_EQ(dir.read("source/backups/file"), "0123456789");
    EXPECT_EQ(full.count().fired, 1U);
}

TEST_F(FaultfsTest, RulesFollowAFileToItsNewName)
{
    dir.write("source/old", "text");
    const UniqueFd file(::open(mounted("old").c_str(), O_RDONLY));
    std::filesystem::rename(mounted("old"), mounted("new"));
    const Fault lookups = fs().add("lookup pass /new");
    const Fault bad = fs().add("read EIO /new");
    std::array<char, 4> bytes;
    EXPECT_EQ(error_of(static_cast<int>(::read(file.get(), bytes.data(), bytes.size()))), EIO);
    EXPECT_EQ(::access(mounted("new").c_str(), R_OK), 0);
    EXPECT_EQ(lookups.count().seen, 1U);
}

TEST_F(FaultfsTest, APatternWithSpacesAndBracketsIsTakenToTheEndOfTheLine)
{
    dir.write("source/[store] my vm", "text");
    const Fault bad = fs().add("read EIO times=1 /\\[store\\] my vm");
    EXPECT_ANY_THROW(dir.read("mount/[store] my vm"));
    EXPECT_EQ(dir.read("mount/[store] my vm"), "text");
}

TEST_F(FaultfsTest, RulesThatMakeNoSenseAreRefused)
{
    for (const char* const rule :
         {"", "access", "access EIO", "acces EIO *", "access EFUN *", "access EIO time=1 *",
          "access EIO times=x *", "access EIO times= *", "access EIO from=1 *"})
        EXPECT_THROW(static_cast<void>(fs().add(rule)), std::runtime_error) << rule;
    EXPECT_NO_THROW(static_cast<void>(fs().add("access EIO *"))) << "the next command is heard";
}

TEST_F(FaultfsTest, AMountThatCannotBeMadeIsTold)
{
    EXPECT_THROW(FaultMount(source() / "nowhere", source()), std::runtime_error);
    EXPECT_THROW(FaultMount(source(), source() / "nowhere"), std::runtime_error);
}

TEST_F(FaultfsTest, MountsOverItsOwnSource)
{
    dir.write("source/backups/file", "text");
    FaultMount over(source() / "backups", source() / "backups");
    const Fault slow = over.add("access ETIME times=1 /file");
    EXPECT_EQ(error_of(::access((over.path() / "file").c_str(), R_OK)), ETIME);
    EXPECT_EQ(dir.read("source/backups/file"), "text");
    EXPECT_EQ(over.end(), 0);
}

TEST_F(FaultfsTest, WorksInAUserNamespace)
{
    const std::string in_namespace = "unshare --map-root-user --mount ";
    if (std::system((in_namespace + "true").c_str()) != 0)
        GTEST_SKIP() << "user namespaces are not permitted on this machine";
    const std::string this_program =
        "'" + std::filesystem::read_symlink("/proc/self/exe").string() + "'";
    const std::string tests = " --gtest_brief=1 --gtest_filter=FaultfsTest.MkdirTimesOut*";
    EXPECT_EQ(std::system((in_namespace + this_program + tests).c_str()), 0);
}

} // namespace

} // namespace faultfs
