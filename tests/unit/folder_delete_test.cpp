#include "file_lines.h"
#include "handle_test.h"
#include "interpose.h"
#include "process_state.h"
#include "real_mount.h"
#include "record_view.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

namespace
{

constexpr char tag[] = "_ixfs_folder_delete()";

Line found_folder_line(const std::string& path)
{
    return {IXFS_LOG_ERR, tag,
            "INF - Found a directory, calling _ixfs_folder_delete(\"" + path + "\")\n"};
}

Line not_unlinked_line(const std::string& path, int error)
{
    return {IXFS_LOG_ERR, tag,
            "ERR - ACE_OS::unlink(" + path + ") failed, error = " + std::to_string(error) + "\n"};
}

Line not_removed_line(const std::string& path, int error)
{
    return {IXFS_LOG_ERR, tag,
            "ERR - Unable to remove directory: " + path + ", error = " + std::to_string(error) +
                "\n"};
}

// The lines of a whole tree's removal, in the order in which its folders list their entries.
Lines removal_lines(const std::filesystem::path& folder)
{
    namespace fs = std::filesystem;
    Lines lines;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (entry.is_directory() && !entry.is_symlink())
            lines = lines + Lines{found_folder_line(entry.path())} + removal_lines(entry.path());
        else
            lines.push_back(removed_file_line(entry.path()));
    }
    lines.push_back(removed_folder_line(folder));
    return lines;
}

class FolderDelete : public HandleTest
{
protected:
    int remove(const std::string& name)
    {
        return _ixfs_folder_delete(handle.get(), (dir / name).c_str());
    }

    // Lets unlinking one file fail.
    auto refuse_unlink(const std::string& name, int error)
    {
        return interpose::on_unlink(
            [refused = dir / name, error](const char* path) -> std::optional<int> {
                if (path != refused)
                    return std::nullopt;
                errno = error;
                return -1;
            });
    }

    TempDir dir;
    NoDescriptorsLeft no_descriptors_left;
};

TEST_F(FolderDelete, MissingPathFailsToOpen)
{
    EXPECT_EQ(remove("missing"), 1);
    EXPECT_EQ(log.take(),
              (Lines{{IXFS_LOG_ERR, tag,
                      "ERR - ACE_OS::opendir(" + dir / "missing" + ") failed, error = 2\n"}}));
}

TEST_F(FolderDelete, EmptyFolderLogsOnlyItsRemoval)
{
    dir.make_folder("d");
    EXPECT_EQ(remove("d"), 0);
    EXPECT_EQ(log.take(), Lines{removed_folder_line(dir / "d")});
    EXPECT_FALSE(dir.exists("d"));
}

TEST_F(FolderDelete, TreeIsRemovedFromTheBottomUp)
{
    dir.make_folder("d/s");
    dir.write("d/f1", "");
    dir.write("d/s/f2", "");
    const Lines expected = removal_lines(dir / "d");
    ASSERT_EQ(expected.size(), 5);
    EXPECT_EQ(remove("d"), 0);
    EXPECT_EQ(log.take(), expected);
    EXPECT_FALSE(dir.exists("d"));
}

TEST_F(FolderDelete, DeepTreeIsRemoved)
{
    std::string folder = "d";
    for (int depth = 0; depth < 60; ++depth)
        folder += "/s";
    dir.make_folder(folder);
    const Lines expected = removal_lines(dir / "d");
    EXPECT_EQ(remove("d"), 0);
    EXPECT_EQ(log.take(), expected);
    EXPECT_FALSE(dir.exists("d"));
}

TEST_F(FolderDelete, FileThatCannotBeUnlinkedFailsEveryLevelAboveIt)
{
    dir.make_folder("d/s/t");
    dir.write("d/s/t/f", "");
    auto unlink = refuse_unlink("d/s/t/f", EACCES);
    EXPECT_EQ(remove("d"), 1);
    EXPECT_EQ(log.take(), (Lines{
                              found_folder_line(dir / "d/s"),
                              found_folder_line(dir / "d/s/t"),
                              not_unlinked_line(dir / "d/s/t/f", 13),
                              not_removed_line(dir / "d/s", 39),
                              not_removed_line(dir / "d", 39),
                          }));
    EXPECT_TRUE(dir.exists("d/s/t/f"));
}

TEST_F(FolderDelete, FileThatCannotBeUnlinkedEndsTheWalkOfItsFolder)
{
    dir.make_folder("d");
    for (const char* const name : {"d/1", "d/2", "d/3"})
        dir.write(name, "");
    std::vector<std::string> listed;
    for (const auto& entry : std::filesystem::directory_iterator(dir / "d"))
        listed.push_back(entry.path());
    auto unlink = refuse_unlink("d/" + std::filesystem::path(listed[1]).filename().string(), EPERM);
    EXPECT_EQ(remove("d"), 1);
    EXPECT_EQ(log.take(), (Lines{removed_file_line(listed[0]), not_unlinked_line(listed[1], 1)}));
    EXPECT_TRUE(std::filesystem::exists(listed[2]));
}

TEST_F(FolderDelete, WalkGoesOnBehindAFolderThatStays)
{
    for (const char* const name : {"d/1", "d/2"}) {
        dir.make_folder(name);
        dir.write(std::string(name) + "/f", "");
    }
    auto unlink = interpose::on_unlink([](const char* path) -> std::optional<int> {
        if (std::string(path).back() != 'f')
            return std::nullopt;
        errno = EACCES;
        return -1;
    });
    EXPECT_EQ(remove("d"), 1);
    const Lines lines = log.take();
    for (const char* const name : {"d/1/f", "d/2/f"})
        EXPECT_EQ(std::count(lines.begin(), lines.end(), not_unlinked_line(dir / name, 13)), 1);
    EXPECT_EQ(lines.back(), not_removed_line(dir / "d", 39));
    EXPECT_EQ(lines.size(), 5);
}

TEST_F(FolderDelete, RegularFileIsNotAFolderAndStays)
{
    dir.write("file", "bytes");
    EXPECT_EQ(remove("file"), 1);
    EXPECT_EQ(log.take(),
              (Lines{{IXFS_LOG_ERR, tag,
                      "ERR - ACE_OS::opendir(" + dir / "file" + ") failed, error = 20\n"}}));
    EXPECT_EQ(dir.read("file"), "bytes");
}

TEST_F(FolderDelete, HiddenNamesAreRemovedToo)
{
    dir.make_folder("d/..folder");
    for (const char* const name : {"d/.hidden", "d/...", "d/..x"})
        dir.write(name, "");
    EXPECT_EQ(remove("d"), 0);
    EXPECT_FALSE(dir.exists("d"));
}

TEST_F(FolderDelete, FolderOnWhichAFileSystemIsMountedStays)
{
    dir.make_folder("d/mount");
    dir.make_folder("stored");
    dir.write("stored/disk", "data");
    const auto mounted = RealMount::bind(dir / "stored", dir / "d/mount");
    EXPECT_EQ(remove("d"), 1);
    EXPECT_EQ(log.take(), (Lines{{IXFS_LOG_ERR, tag,
                                  "ERR - still mounted, not deleted: " + dir / "d/mount" + "\n"},
                                 not_removed_line(dir / "d", 39)}));
    EXPECT_EQ(dir.read("stored/disk"), "data");
}

TEST_F(FolderDelete, FolderOfWhichTheKernelDoesNotTellIsRemoved)
{
    dir.make_folder("d/s");
    const Lines expected = removal_lines(dir / "d");
    const auto stat = interpose::on_stat.fails(EIO);
    EXPECT_EQ(remove("d"), 0);
    EXPECT_EQ(log.take(), expected);
}

TEST_F(FolderDelete, SymbolicLinksAreRemovedAndNotFollowed)
{
    namespace fs = std::filesystem;
    dir.make_folder("d");
    dir.make_folder("elsewhere");
    dir.write("elsewhere/file", "bytes");
    fs::create_directory_symlink(dir / "elsewhere", dir / "d/to-folder");
    fs::create_symlink(dir / "elsewhere/file", dir / "d/to-file");
    fs::create_symlink(dir / "missing", dir / "d/dangling");
    const Lines expected = removal_lines(dir / "d");
    EXPECT_EQ(remove("d"), 0);
    EXPECT_EQ(log.take(), expected);
    EXPECT_EQ(dir.read("elsewhere/file"), "bytes");
}

TEST_F(FolderDelete, ReadErrorEndsTheWalkLikeTheEndOfTheFolder)
{
    dir.make_folder("d");
    dir.write("d/f", "");
    {
        auto readdir = interpose::on_readdir.fails(EIO);
        EXPECT_EQ(remove("d"), 1);
    }
    EXPECT_EQ(log.take(), Lines{not_removed_line(dir / "d", 39)});

    dir.make_folder("empty");
    {
        auto readdir = interpose::on_readdir.fails(EIO);
        EXPECT_EQ(remove("empty"), 0);
    }
    EXPECT_EQ(log.take(), Lines{removed_folder_line(dir / "empty")});
}

TEST_F(FolderDelete, FolderIsRemovedWhileItIsStillOpen)
{
    dir.make_folder("d");
    const std::string path = dir / "d";
    long open_then = 0;
    auto rmdir = interpose::on_rmdir([&](const char*) -> std::optional<int> {
        const std::vector<std::string> open = open_descriptors();
        open_then = std::count(open.begin(), open.end(), path);
        return std::nullopt;
    });
    EXPECT_EQ(remove("d"), 0);
    EXPECT_EQ(open_then, 1);
}

TEST_F(FolderDelete, FolderThatCannotBeRemovedIsReportedWithItsError)
{
    dir.make_folder("d");
    auto rmdir = interpose::on_rmdir.fails(EBUSY);
    EXPECT_EQ(remove("d"), 1);
    EXPECT_EQ(rmdir.calls(), 1);
    EXPECT_EQ(log.take(), Lines{not_removed_line(dir / "d", 16)});
}

TEST_F(FolderDelete, FailureLeavesTheLastStatusOfTheHandleAlone)
{
    _ixfs_no_mount(handle.get(), EC_HELPER_FAILED);
    EXPECT_EQ(remove("missing"), 1);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
}

#ifndef IXFS_SANITIZER_DEFINES_NEW
TEST_F(FolderDelete, FolderForWhichMemoryIsShortStays)
{
    dir.make_folder("d");
    dir.write("d/f", "");
    const std::string path = dir / "d";
    const Handle silent(ixfs_init(0, nullptr, nullptr, nullptr, nullptr));
    {
        constexpr std::size_t folder_stream = 10'000; // bytes, at least: without it nothing is read
        const auto no_memory =
            interpose::on_allocation([](std::size_t size) -> std::optional<void*> {
                if (size >= folder_stream)
                    return std::nullopt;
                errno = ENOMEM;
                return nullptr;
            });
        EXPECT_EQ(_ixfs_folder_delete(silent.get(), path.c_str()), 1);
    }
    EXPECT_TRUE(dir.exists("d/f"));
}
#endif

} // namespace
