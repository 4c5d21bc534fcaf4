#include "child_process.h"
#include "file_lines.h"
#include "handle_test.h"
#include "hidden_mounts.h"
#include "interpose.h"
#include "process_state.h"
#include "real_mount.h"
#include "record_view.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <unistd.h>

namespace
{

constexpr char delete_tag[] = "_ixfs_folder_delete()";

Line found_folder_line(const std::string& path)
{
    return {IXFS_LOG_ERR, delete_tag,
            "INF - Found a directory, calling _ixfs_folder_delete(\"" + path + "\")\n"};
}

Line not_unlinked_line(const std::string& path, int error)
{
    return {IXFS_LOG_ERR, delete_tag,
            "ERR - ACE_OS::unlink(" + path + ") failed, error = " + std::to_string(error) + "\n"};
}

Line not_removed_line(const std::string& path, int error)
{
    return {IXFS_LOG_ERR, delete_tag,
            "ERR - Unable to remove directory: " + path + ", error = " + std::to_string(error) +
                "\n"};
}

Line not_opened_line(const std::string& path, int error)
{
    return {IXFS_LOG_ERR, delete_tag,
            "ERR - ACE_OS::opendir(" + path + ") failed, error = " + std::to_string(error) + "\n"};
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

    Line still_mounted_line(const std::string& name) const
    {
        return {IXFS_LOG_ERR, delete_tag, "ERR - still mounted, not deleted: " + dir / name + "\n"};
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

    // Folders in folders, more than are open at once.
    const std::string deep = "/s/s/s/s/s/s/s/s/s/s/s/s/s/s/s/s/s/s/s/s";

    TempDir dir;
    NoDescriptorsLeft no_descriptors_left;
};

TEST_F(FolderDelete, MissingPathFailsToOpen)
{
    EXPECT_EQ(remove("missing"), 1);
    EXPECT_EQ(log.take(),
              (Lines{{IXFS_LOG_ERR, delete_tag,
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
              (Lines{{IXFS_LOG_ERR, delete_tag,
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
    EXPECT_EQ(log.take(), (Lines{{IXFS_LOG_ERR, delete_tag,
                                  "ERR - still mounted, not deleted: " + dir / "d/mount" + "\n"},
                                 not_removed_line(dir / "d", 39)}));
    EXPECT_EQ(dir.read("stored/disk"), "data");
}

TEST_F(FolderDelete, FolderOfWhichTheKernelDoesNotTellIsRemovedWhenTheMountTableDoes)
{
    dir.make_folder("d/s");
    const Lines expected = removal_lines(dir / "d");
    const auto stat = interpose::on_stat.fails(EIO);
    EXPECT_EQ(remove("d"), 0);
    EXPECT_EQ(log.take(), expected);
}

TEST_F(FolderDelete, MountIsFoundInTheMountTableOfAnOldKernel)
{
    dir.make_folder("d/mount");
    dir.make_folder("d/s");
    dir.make_folder("stored");
    dir.write("stored/disk", "data");
    const auto mounted = RealMount::bind(dir / "stored", dir / "d/mount");
    const NoMountRoots old_kernel;
    EXPECT_EQ(remove("d"), 1);
    EXPECT_EQ(log.with_message(still_mounted_line("d/mount").message).size(), 1U);
    EXPECT_EQ(log.lines().back(), not_removed_line(dir / "d", 39));
    EXPECT_EQ(dir.read("stored/disk"), "data");
    EXPECT_FALSE(dir.exists("d/s"));
}

TEST_F(FolderDelete, FolderOfWhichNothingTellsStays)
{
    dir.make_folder("d/s");
    const NoMountRoots old_kernel;
    const NoProcFile no_table("fdinfo/");
    EXPECT_EQ(remove("d"), 1);
    EXPECT_EQ(log.take(), (Lines{still_mounted_line("d/s"), not_removed_line(dir / "d", 39)}));
}

TEST_F(FolderDelete, MountThatComesBetweenLookAndOpeningStays)
{
    dir.make_folder("d/s");
    dir.make_folder("stored");
    dir.write("stored/disk", "data");
    std::optional<RealMount> mounted;
    const auto open = interpose::on_opendir([&](const char* path) -> std::optional<int> {
        if (path == dir / "d/s" && !mounted)
            mounted.emplace(RealMount::bind(dir / "stored", dir / "d/s"));
        return std::nullopt;
    });
    EXPECT_EQ(remove("d"), 1);
    EXPECT_EQ(log.take(), (Lines{still_mounted_line("d/s"), not_removed_line(dir / "d", 39)}));
    EXPECT_EQ(dir.read("stored/disk"), "data");
}

TEST_F(FolderDelete, MountThatComesWhileTheFolderIsReadIsNotEntered)
{
    dir.make_folder("d/s");
    dir.make_folder("stored");
    dir.write("stored/disk", "data");
    std::optional<RealMount> mounted;
    const auto read = interpose::on_readdir([&](DIR*) -> std::optional<dirent*> {
        if (!mounted)
            mounted.emplace(RealMount::bind(dir / "stored", dir / "d"));
        return std::nullopt;
    });
    EXPECT_EQ(remove("d"), 1);
    EXPECT_EQ(log.take(), (Lines{found_folder_line(dir / "d/s"), removed_folder_line(dir / "d/s"),
                                 not_removed_line(dir / "d", 16)}));
    EXPECT_EQ(dir.read("stored/disk"), "data");
}

// What another process puts in a folder's place

TEST_F(FolderDelete, LinkPutInAFoldersPlaceIsNotFollowed)
{
    dir.make_folder("d/s");
    dir.make_folder("outside");
    dir.write("outside/file", "bytes");
    const auto unlink = interpose::on_unlink([&](const char* path) -> std::optional<int> {
        if (path != dir / "d/s")
            return std::nullopt;
        std::filesystem::remove(path);
        std::filesystem::create_directory_symlink(dir / "outside", path);
        errno = EISDIR; // as of the folder that was there
        return -1;
    });
    EXPECT_EQ(remove("d"), 1);
    EXPECT_EQ(log.take(), (Lines{found_folder_line(dir / "d/s"), not_opened_line(dir / "d/s", 20),
                                 not_removed_line(dir / "d", 39)}));
    EXPECT_EQ(dir.read("outside/file"), "bytes");
}

TEST_F(FolderDelete, LinkInThePlaceOfAFolderThatIsBeingReadIsNotFollowed)
{
    dir.make_folder("d/s");
    dir.write("d/s/file", "");
    dir.make_folder("outside");
    dir.write("outside/file", "bytes");
    const auto unlink = interpose::on_unlink([&](const char* path) -> std::optional<int> {
        if (path == dir / "d/s/file") {
            std::filesystem::rename(dir / "d/s", dir / "moved");
            std::filesystem::create_directory_symlink(dir / "outside", dir / "d/s");
        }
        return std::nullopt;
    });
    EXPECT_EQ(remove("d"), 1);
    EXPECT_EQ(log.take(),
              (Lines{found_folder_line(dir / "d/s"), removed_file_line(dir / "d/s/file"),
                     not_removed_line(dir / "d/s", 20), not_removed_line(dir / "d", 39)}));
    EXPECT_EQ(dir.read("outside/file"), "bytes");
}

TEST_F(FolderDelete, LinkThatIsGivenIsNotFollowed)
{
    dir.make_folder("outside");
    dir.write("outside/file", "bytes");
    std::filesystem::create_directory_symlink(dir / "outside", dir / "link");
    for (const char* const name : {"link", "link/", "link//"}) {
        EXPECT_EQ(remove(name), 1);
        EXPECT_EQ(log.take(), Lines{not_opened_line(dir / name, 20)});
    }
    EXPECT_EQ(dir.read("outside/file"), "bytes");
}

TEST_F(FolderDelete, LinkAboveTheFolderIsFollowed)
{
    dir.make_folder("real/d");
    std::filesystem::create_directory_symlink(dir / "real", dir / "link");
    EXPECT_EQ(remove("link/d"), 0);
    EXPECT_EQ(log.take(), Lines{removed_folder_line(dir / "link/d")});
    EXPECT_FALSE(dir.exists("real/d"));
}

// Paths

TEST_F(FolderDelete, SlashesBehindTheNameStayInTheMessages)
{
    dir.make_folder("d");
    dir.write("d/f", "");
    EXPECT_EQ(remove("d//"), 0);
    EXPECT_EQ(log.take(),
              (Lines{removed_file_line(dir / "d///f"), removed_folder_line(dir / "d//")}));
}

TEST_F(FolderDelete, PathWithoutANameIsEmptiedAndStays)
{
    dir.make_folder("d/s");
    EXPECT_EQ(remove("d/."), 1);
    EXPECT_EQ(log.take(),
              (Lines{found_folder_line(dir / "d/./s"), removed_folder_line(dir / "d/./s"),
                     not_removed_line(dir / "d/.", 22)}));
    dir.make_folder("d/s");
    dir.make_folder("d/t");
    EXPECT_EQ(remove("d/s/.."), 1);
    EXPECT_EQ(log.take().back(), not_removed_line(dir / "d/s/..", 2));
    EXPECT_TRUE(std::filesystem::is_empty(dir / "d"));
}

TEST_F(FolderDelete, EmptyPathFailsToOpen)
{
    EXPECT_EQ(_ixfs_folder_delete(handle.get(), ""), 1);
    EXPECT_EQ(log.take(), Lines{not_opened_line("", 2)});
}

TEST_F(FolderDelete, PathsAreRelativeToTheWorkingDirectoryAndTheRoot)
{
    for (const std::string path : {"d", "./d", "/d", "..", "/"}) {
        dir.make_folder("d/s");
        dir.make_folder("work");
        ChildProcess child(STDERR_FILENO, [&](ChildProcess::Parent&) {
            if (chroot(dir.path().c_str()) != 0 || chdir(path == ".." ? "/work" : "/") != 0)
                return -1;
            const Handle silent(ixfs_init(0, nullptr, nullptr, nullptr, nullptr));
            return _ixfs_folder_delete(silent.get(), path.c_str());
        });
        const bool is_root = path == ".." || path == "/";
        EXPECT_EQ(child.wait(), is_root ? 1 : 0) << path;
        EXPECT_FALSE(dir.exists("d")) << path;
        EXPECT_EQ(dir.exists("work"), !is_root) << path;
    }
}

// Depth

TEST_F(FolderDelete, WhatStaysInADeepTreeIsTriedOnce)
{
    dir.make_folder("d/stays/s");
    dir.write("d/stays/f", "");
    for (const std::string name : {"d/1", "d/2", "d/3"})
        dir.make_folder(name + deep);
    const auto unlink = refuse_unlink("d/stays/f", EACCES);
    EXPECT_EQ(remove("d"), 1);
    EXPECT_EQ(log.with_message(not_unlinked_line(dir / "d/stays/f", 13).message).size(), 1U);
    EXPECT_EQ(log.with_message(found_folder_line(dir / "d/stays").message).size(), 1U);
    EXPECT_EQ(log.lines().back(), not_removed_line(dir / "d", 39));
    for (const char* const name : {"d/1", "d/2", "d/3"})
        EXPECT_FALSE(dir.exists(name));
}

TEST_F(FolderDelete, MountInADeepTreeIsFoundOnce)
{
    dir.make_folder("d/mount");
    for (const std::string name : {"d/1", "d/2"})
        dir.make_folder(name + deep);
    const auto mounted = RealMount::tmpfs(dir / "d/mount");
    dir.write("d/mount/disk", "data");
    EXPECT_EQ(remove("d"), 1);
    EXPECT_EQ(log.with_message(still_mounted_line("d/mount").message).size(), 1U);
    EXPECT_EQ(dir.read("d/mount/disk"), "data");
}

TEST_F(FolderDelete, DeepFolderThatIsMovedAwayEndsTheDeletion)
{
    dir.make_folder("d/1/2" + deep);
    dir.write("d/1/2" + deep + "/file", "");
    dir.make_folder("outside");
    dir.write("outside/file", "bytes");
    const auto unlink = interpose::on_unlink([&](const char* path) -> std::optional<int> {
        std::error_code error;
        if (std::filesystem::path(path).filename() == "file")
            std::filesystem::rename(dir / "d/1/2", dir / "outside/2", error);
        return std::nullopt;
    });
    EXPECT_EQ(remove("d"), 1);
    EXPECT_EQ(log.lines().back(), not_opened_line(dir / "d/1", 116));
    EXPECT_EQ(dir.read("outside/file"), "bytes");
    EXPECT_TRUE(dir.exists("d/1"));
}

TEST_F(FolderDelete, DeepFolderThatCannotBeOpenedAgainEndsTheDeletion)
{
    dir.make_folder("d" + deep);
    const auto open = interpose::on_opendir([](const char* path) -> std::optional<int> {
        if (std::filesystem::path(path).filename() != "..")
            return std::nullopt;
        errno = EMFILE;
        return -1;
    });
    EXPECT_EQ(remove("d"), 1);
    EXPECT_EQ(open.calls(), 23) << "the folder that holds d, 21 folders, and a way up";
    const Lines lines = log.lines();
    const auto& last = lines.back().message;
    EXPECT_EQ(last.find("ERR - ACE_OS::opendir(" + dir / "d" + "/s/s"), 0U);
    EXPECT_NE(last.find(") failed, error = 24\n"), std::string::npos);
}

TEST_F(FolderDelete, LongPathIsCutInEveryMessage)
{
    std::string path = "d";
    for (int depth = 0; depth < 15; ++depth)
        path += "/" + std::string(200, 'x');
    dir.make_folder(path);
    const Lines expected = removal_lines(dir / "d");
    EXPECT_EQ(remove("d"), 0);
    const Lines lines = log.take();
    ASSERT_EQ(lines.size(), expected.size());
    for (std::size_t i = 0; i < lines.size(); ++i)
        EXPECT_EQ(lines[i].message, expected[i].message.substr(0, 2047));
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
