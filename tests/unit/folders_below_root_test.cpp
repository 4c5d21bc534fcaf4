// Creating folders below the root: it exists, and nothing else does.
#include "child_process.h"
#include "file_lines.h"
#include "handle_test.h"
#include "interpose.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

namespace
{

using Paths = std::vector<std::string>;

// The text with each run of slashes as one, since "//a" and "/a" name the same folder.
std::string with_single_slashes(const std::string& text)
{
    std::string single;
    for (const char c : text) {
        if (c != '/' || single.empty() || single.back() != '/')
            single += c;
    }
    return single;
}

Line create_line(const std::string& message)
{
    return {IXFS_LOG_INF, "_ixfs_folder_create()", message + "\n"};
}

Line segment_exists_line(int segment, const std::string& path)
{
    return create_line("INF - ACE_OS::mkdir(): Segment (" + std::to_string(segment) +
                       "), Parent (" + path + ") already exists, continuing...");
}

class FoldersBelowRoot : public HandleTest, public testing::WithParamInterface<const char*>
{
protected:
    int create(const std::string& folder)
    {
        return _ixfs_folder_create(handle.get(), GetParam(), folder.c_str(), &segments, 0755);
    }

    Lines lines()
    {
        Lines lines = log.take();
        for (Line& line : lines)
            line.message = with_single_slashes(line.message);
        return lines;
    }

    const Lines beginning{create_line("INF - base_name: /, folder_name: a/b"),
                          create_line("INF - path: /a/b")};
    uint32_t segments = 5;
};

TEST_P(FoldersBelowRoot, EverySegmentIsMade)
{
    Paths made;
    {
        const auto mkdir = interpose::on_mkdir([&](const char* path, mode_t) {
            made.push_back(with_single_slashes(path));
            return std::optional<int>(0);
        });
        EXPECT_EQ(create("a/b"), 0);
    }
    EXPECT_EQ(made, (Paths{"/a", "/a/b"}));
    EXPECT_EQ(segments, 7U);
    EXPECT_EQ(lines(), beginning + create_line("INF - Successfully created directory: /a/b"));
}

TEST_P(FoldersBelowRoot, SegmentsThatAreThereCountFromOne)
{
    {
        const auto mkdir = interpose::on_mkdir.fails(EEXIST);
        EXPECT_EQ(create("a/b"), 0);
        EXPECT_EQ(mkdir.calls(), 2);
    }
    EXPECT_EQ(segments, 7U);
    EXPECT_EQ(lines(), beginning + segment_exists_line(1, "/a") + segment_exists_line(2, "/a/b") +
                           create_line("INF - Successfully created directory: /a/b"));
}

TEST_P(FoldersBelowRoot, FirstSegmentThatCannotBeMadeFails)
{
    {
        const auto mkdir = interpose::on_mkdir.fails(EROFS);
        EXPECT_EQ(create("a/b"), 1);
        EXPECT_EQ(mkdir.calls(), 1);
    }
    EXPECT_EQ(segments, 5U);
    EXPECT_EQ(lines(),
              beginning +
                  create_line("ERR - ACE_OS::mkdir(): Could not create Parent (/a), error: 30"));
}

TEST_P(FoldersBelowRoot, NothingIsMadeWhereNoFolderIsNamed)
{
    {
        const auto mkdir = interpose::on_mkdir.returns(0);
        EXPECT_EQ(create(""), 0);
        EXPECT_EQ(create("/"), 0);
        EXPECT_EQ(mkdir.calls(), 0);
    }
    EXPECT_EQ(segments, 5U);
    EXPECT_EQ(lines().back(), create_line("INF - Successfully created directory: /"));
}

TEST_P(FoldersBelowRoot, AreThereAfterwards)
{
    const TempDir root;
    for (const std::string folder : {"alone", "a/b/c"}) {
        ChildProcess child(STDERR_FILENO, [&](ChildProcess::Parent&) {
            if (chroot(root.path().c_str()) != 0 || chdir("/") != 0)
                return -1;
            const Handle silent(ixfs_init(0, nullptr, nullptr, nullptr, nullptr));
            return _ixfs_folder_create(silent.get(), GetParam(), folder.c_str(), &segments, 0755);
        });
        EXPECT_EQ(child.wait(), 0) << folder;
        EXPECT_TRUE(std::filesystem::is_directory(root / folder)) << folder;
    }
}

INSTANTIATE_TEST_SUITE_P(FoldersBelowRoot, FoldersBelowRoot, testing::Values("/", "//"),
                         [](const auto& base) {
                             return std::to_string(std::string(base.param).size()) + "Slashes";
                         });

} // namespace
