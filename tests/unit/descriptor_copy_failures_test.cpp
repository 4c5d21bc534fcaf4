#include "descriptor_test.h"
#include "interpose.h"
#include "record_view.h"

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>

#include <sys/stat.h>

namespace
{

namespace fs = std::filesystem;

using DescriptorCopyFailures = DescriptorTest;

TEST_F(DescriptorCopyFailures, MissingOldFile)
{
    EXPECT_EQ(copy_file(dir / "missing", dir / "new"), 0);
    EXPECT_EQ(log.take(), Lines{error("can't open old " + dir / "missing" + ", err 2")});
    EXPECT_FALSE(dir.exists("new"));
}

TEST_F(DescriptorCopyFailures, NewFileInAMissingFolder)
{
    dir.write("old", old_extent);
    EXPECT_EQ(copy_file(dir / "old", dir / "missing/new"), 0);
    EXPECT_EQ(log.take(), Lines{error("can't open new " + dir / "missing/new" + ", err 2")});
}

TEST_F(DescriptorCopyFailures, NewFileThatIsAFolder)
{
    dir.make_folder("new");
    EXPECT_EQ(copy(old_extent), 0);
    EXPECT_EQ(log.take(), Lines{error("can't open new " + dir / "new" + ", err 21")});
}

TEST_F(DescriptorCopyFailures, OldFileThatCannotBeRead)
{
    EXPECT_EQ(copy_file(dir.path(), dir / "new"), 0);
    EXPECT_EQ(log.take(), (Lines{no_extent_line}));
    EXPECT_EQ(copied(), "");
}

TEST_F(DescriptorCopyFailures, ReadErrorBehindTheExtentLine)
{
    dir.write("old", old_extent);
    {
        auto read = interpose::on_read.fails(EIO, 2); // the first one gets all there is
        EXPECT_EQ(copy_file(dir / "old", dir / "new"), 0);
    }
    EXPECT_EQ(log.take(), (Lines{extent_line(), error("error reading old file - 5")}));
    EXPECT_EQ(copied(), new_extent);
}

TEST_F(DescriptorCopyFailures, FullDeviceShowsWhenTheFileIsFlushed)
{
    dir.write("old", old_extent);
    EXPECT_EQ(copy_file(dir / "old", "/dev/full"), 0);
    EXPECT_EQ(log.take(), (Lines{extent_line(), error("error writing new file - 28")}));
}

TEST_F(DescriptorCopyFailures, FullDeviceShowsAlsoWhenItIsMetBeforeTheEnd)
{
    dir.write("old", old_extent + std::string(100'000, 'x'));
    EXPECT_EQ(copy_file(dir / "old", "/dev/full"), 0);
    EXPECT_EQ(log.take(), (Lines{extent_line(), error("error writing new file - 28")}));
}

TEST_F(DescriptorCopyFailures, FullDeviceWithoutAnExtentLineTellsBoth)
{
    dir.write("old", "version=1\n");
    EXPECT_EQ(copy_file(dir / "old", "/dev/full"), 0);
    EXPECT_EQ(log.take(), (Lines{no_extent_line, error("error writing new file - 28")}));
}

TEST_F(DescriptorCopyFailures, FailingCloseIsIgnored)
{
    dir.write("old", old_extent);
    auto close = interpose::on_close.fails(EIO);
    EXPECT_EQ(copy_file(dir / "old", dir / "new"), 1);
    EXPECT_EQ(close.calls(), 2);
    EXPECT_EQ(log.take(), Lines{extent_line()});
}

TEST_F(DescriptorCopyFailures, PartialFileStays)
{
    EXPECT_EQ(copy("version=1\nRW 2048 FLAT \"a\" 0\nend\n"), 0);
    EXPECT_EQ(copied(), "version=1\n");
}

TEST_F(DescriptorCopyFailures, LastStatusOfTheHandleIsLeftAlone)
{
    _ixfs_no_mount(handle.get(), EC_HELPER_FAILED);
    EXPECT_EQ(copy("version=1\n"), 0);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
}

// ---- A new file that is there already -----------------------------------------------------------

TEST_F(DescriptorCopyFailures, LongerNewFileIsCutToTheCopy)
{
    dir.write("new", std::string(5000, 'x'));
    EXPECT_EQ(copy(old_extent), 1);
    EXPECT_EQ(copied(), new_extent);
}

TEST_F(DescriptorCopyFailures, NewFileThatIsALinkIsFollowed)
{
    dir.write("target", std::string(5000, 'x'));
    fs::create_symlink("target", dir / "new");
    EXPECT_EQ(copy(old_extent), 1);
    EXPECT_EQ(dir.read("target"), new_extent);
    EXPECT_TRUE(fs::is_symlink(dir / "new"));
}

TEST_F(DescriptorCopyFailures, NewFileThatIsALinkToNothingIsMadeWhereItLeads)
{
    fs::create_symlink("target", dir / "new");
    EXPECT_EQ(copy(old_extent), 1);
    EXPECT_EQ(dir.read("target"), new_extent);
    EXPECT_TRUE(fs::is_symlink(dir / "new"));
}

TEST_F(DescriptorCopyFailures, PathOfAFolderForANewFileTellsWhatIsThere)
{
    dir.write("old", old_extent);
    dir.write("file", "kept");
    EXPECT_EQ(copy_file(dir / "old", dir / "file/"), 0);
    EXPECT_EQ(log.take(), Lines{error("can't open new " + dir / "file/" + ", err 20")});
    EXPECT_EQ(copy_file(dir / "old", dir / "missing/"), 0);
    EXPECT_EQ(log.take(), Lines{error("can't open new " + dir / "missing/" + ", err 21")});
    EXPECT_EQ(dir.read("file"), "kept");
}

TEST_F(DescriptorCopyFailures, NewFileThatSharesItsDataIsReplaced)
{
    dir.write("data", "the backup's data");
    fs::create_hard_link(dir / "data", dir / "new");
    EXPECT_EQ(copy(old_extent), 1);
    EXPECT_EQ(copied(), new_extent);
    EXPECT_EQ(dir.read("data"), "the backup's data");
    EXPECT_EQ(fs::hard_link_count(dir / "data"), 1);
}

TEST_F(DescriptorCopyFailures, NewFileOfWhichNothingIsToldIsReplaced)
{
    dir.write("data", "the backup's data");
    fs::create_hard_link(dir / "data", dir / "new");
    {
        const auto stat = interpose::on_stat.fails(EIO);
        EXPECT_EQ(copy(old_extent), 1);
    }
    EXPECT_EQ(copied(), new_extent);
    EXPECT_EQ(dir.read("data"), "the backup's data");
}

TEST_F(DescriptorCopyFailures, NothingElseIsTakenAwayBeforeItIsWritten)
{
    dir.make_folder("folder/within"); // so that several names lead to "folder"
    dir.write("old", old_extent);
    dir.write("file", "");
    const auto unlink = interpose::on_unlink.fails(EACCES);
    EXPECT_EQ(copy_file(dir / "old", dir / "missing"), 1);
    EXPECT_EQ(copy_file(dir / "old", dir / "file"), 1);
    EXPECT_EQ(copy_file(dir / "old", dir / "folder"), 0);
    EXPECT_EQ(unlink.calls(), 0);
}

TEST_F(DescriptorCopyFailures, NewFileThatIsTheOldFileUnderAnotherNameIsReplaced)
{
    dir.write("old", old_extent);
    fs::create_hard_link(dir / "old", dir / "new");
    EXPECT_EQ(copy_file(dir / "old", dir / "new"), 1);
    EXPECT_EQ(copied(), new_extent);
    EXPECT_EQ(dir.read("old"), old_extent);
}

TEST_F(DescriptorCopyFailures, SharedFileThatCannotBeReplacedIsNotWritten)
{
    dir.write("old", old_extent);
    dir.write("data", "the backup's data");
    fs::create_hard_link(dir / "data", dir / "new");
    {
        auto unlink = interpose::on_unlink.fails(EACCES);
        EXPECT_EQ(copy_file(dir / "old", dir / "new"), 0);
    }
    EXPECT_EQ(log.take(), Lines{error("can't open new " + dir / "new" + ", err 13")});
    EXPECT_EQ(dir.read("data"), "the backup's data");
}

} // namespace
