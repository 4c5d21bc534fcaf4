#include "file_lines.h"
#include "handle_test.h"
#include "interpose.h"
#include "record_view.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr char exists_tag[] = "_ixfs_file_exists()";
constexpr char create_tag[] = "_ixfs_folder_create()";
constexpr char link_tag[] = "_ixfs_create_hard_link()";

struct stat status_of(const std::string& path)
{
    struct stat status {
    };
    EXPECT_EQ(lstat(path.c_str(), &status), 0) << path;
    return status;
}

class Files : public HandleTest
{
protected:
    int exists(const std::string& path) { return _ixfs_file_exists(handle.get(), path.c_str()); }

    int create(const std::string& base, const std::string& folder, mode_t mode = 0755)
    {
        return _ixfs_folder_create(handle.get(), base.c_str(), folder.c_str(), &segments, mode);
    }

    int link(const std::string& existing, const std::string& path)
    {
        return _ixfs_create_hard_link(handle.get(), existing.c_str(), path.c_str());
    }

    TempDir dir;
    uint32_t segments = 0;
};

// ---- Existence ----------------------------------------------------------------------------------

TEST_F(Files, MissingPathDoesNotExistAndLogsNothing)
{
    EXPECT_EQ(exists(dir / "missing"), 0);
    EXPECT_EQ(log.take(), Lines{});
}

TEST_F(Files, FileExists)
{
    dir.write("file", "");
    EXPECT_EQ(exists(dir / "file"), 1);
    EXPECT_EQ(log.take(), Lines{exists_line(dir / "file")});
}

TEST_F(Files, FolderExists)
{
    EXPECT_EQ(exists(dir.path()), 1);
    EXPECT_EQ(log.take(), Lines{exists_line(dir.path())});
}

TEST_F(Files, ExistsMeansReadable)
{
    int asked_for = -1;
    auto access = interpose::on_access([&](const char*, int mode) -> std::optional<int> {
        asked_for = mode;
        errno = EACCES;
        return -1;
    });
    EXPECT_EQ(exists("/m/secret"), 0);
    EXPECT_EQ(log.take(), (Lines{{IXFS_LOG_ERR, exists_tag,
                                  "ERR - ACE_OS::access(/m/secret) failed, error = 13\n"}}));
    EXPECT_EQ(asked_for, R_OK);
    EXPECT_EQ(access.calls(), 1);
}

TEST_F(Files, PathBelowAFileIsAnErrorOfTheExistenceCheck)
{
    dir.write("file", "");
    EXPECT_EQ(exists(dir / "file/below"), 0);
    EXPECT_EQ(log.take(),
              (Lines{{IXFS_LOG_ERR, exists_tag,
                      "ERR - ACE_OS::access(" + dir / "file/below" + ") failed, error = 20\n"}}));
}

TEST_F(Files, ExistenceThatTimesOut100TimesIsGivenUpWithOneLine)
{
    auto access = interpose::on_access.fails(ETIME);
    EXPECT_EQ(exists("/m/slow"), 0);
    EXPECT_EQ(access.calls(), 100);
    EXPECT_EQ(log.take(),
              (Lines{{IXFS_LOG_ERR, exists_tag,
                      "ERR - ACE_OS::access(/m/slow) failed with semaphoere timeout\n"}}));
}

TEST_F(Files, ExistenceIsTriedA100thTimeAfter99TimeOuts)
{
    auto access = interpose::on_access.fails(ETIME, 1, 99);
    EXPECT_EQ(exists(dir.path()), 1);
    EXPECT_EQ(access.calls(), 100);
    EXPECT_EQ(log.take(), Lines{exists_line(dir.path())});
}

TEST_F(Files, FileFoundMissingAfterTimeOutsLogsNothing)
{
    auto access = interpose::on_access.fails(ETIME, 1, 99);
    EXPECT_EQ(exists(dir / "missing"), 0);
    EXPECT_EQ(access.calls(), 100);
    EXPECT_EQ(log.take(), Lines{});
}

TEST_F(Files, ExistenceIsNotTriedAgainAfterAnotherErrorThanATimeOut)
{
    int call = 0;
    auto access = interpose::on_access([&](const char*, int) -> std::optional<int> {
        errno = ++call <= 2 ? ETIME : EIO;
        return -1;
    });
    EXPECT_EQ(exists("/m/broken"), 0);
    EXPECT_EQ(access.calls(), 3);
    EXPECT_EQ(log.take(), (Lines{{IXFS_LOG_ERR, exists_tag,
                                  "ERR - ACE_OS::access(/m/broken) failed, error = 5\n"}}));
}

TEST_F(Files, ExistenceIsNotTriedAgainAfterEintrOrEagain)
{
    for (const int error : {EINTR, EAGAIN}) {
        auto access = interpose::on_access.fails_once(error);
        EXPECT_EQ(exists(dir.path()), 0);
        EXPECT_EQ(access.calls(), 1);
        EXPECT_EQ(log.take(), (Lines{{IXFS_LOG_ERR, exists_tag,
                                      "ERR - ACE_OS::access(" + dir.path() +
                                          ") failed, error = " + std::to_string(error) + "\n"}}));
    }
}

TEST_F(Files, LongPathIsAskedForWholeAndLoggedCut)
{
    const std::string path = dir.path() + std::string(3000, '/') + "missing";
    EXPECT_EQ(exists(path), 0);
    EXPECT_EQ(log.take(), Lines{});
    const std::string too_long(PATH_MAX + 1, 'x');
    EXPECT_EQ(exists(too_long), 0);
    const std::string whole = "ERR - ACE_OS::access(" + too_long;
    EXPECT_EQ(log.take(), (Lines{{IXFS_LOG_ERR, exists_tag, whole.substr(0, 2047)}}));
}

// ---- Folders ------------------------------------------------------------------------------------

TEST_F(Files, FolderOfTwoSegmentsIsMadeOneByOneBelowTheBase)
{
    std::vector<std::string> made;
    auto mkdir = interpose::on_mkdir([&](const char* path, mode_t) -> std::optional<int> {
        made.push_back(path);
        return 0;
    });
    segments = 7;
    EXPECT_EQ(create("/a", "b/c"), 0);
    EXPECT_EQ(made, (std::vector<std::string>{"/a/b", "/a/b/c"}));
    EXPECT_EQ(segments, 9);
    EXPECT_EQ(log.take(), folder_created_lines("/a", "b/c", 2));
}

TEST_F(Files, MissingFoldersAreMadeBelowThoseThatAreThere)
{
    EXPECT_EQ(create(dir.path(), "b/c/d"), 0);
    EXPECT_TRUE(S_ISDIR(status_of(dir / "b/c/d").st_mode));
    EXPECT_EQ(log.take(), folder_created_lines(dir.path(), "b/c/d", 3));
}

TEST_F(Files, PathThatIsAllThereHasOneLineForEachSegmentFromTheSecondOn)
{
    dir.make_folder("b/c");
    EXPECT_EQ(create(dir.path(), "b/c"), 0);
    EXPECT_EQ(log.take(), folder_created_lines(dir.path(), "b/c", 0));
    const std::string path = dir / "b/c";
    EXPECT_EQ(segments, std::count(path.begin(), path.end(), '/') - 1);
}

TEST_F(Files, RelativeBaseIsNeverMade)
{
    auto mkdir = interpose::on_mkdir.returns(0);
    EXPECT_EQ(create("a", "b"), 0);
    EXPECT_EQ(mkdir.calls(), 1);
    EXPECT_EQ(segments, 1);
    EXPECT_EQ(log.take(),
              (Lines{
                  {IXFS_LOG_INF, create_tag, "INF - base_name: a, folder_name: b\n"},
                  {IXFS_LOG_INF, create_tag, "INF - path: a/b\n"},
                  {IXFS_LOG_INF, create_tag, "INF - Successfully created directory: a/b\n"},
              }));
}

TEST_F(Files, DoubledAndTrailingSeparatorsMakeNoSegments)
{
    EXPECT_EQ(create(dir.path(), "b//c/"), 0);
    EXPECT_TRUE(S_ISDIR(status_of(dir / "b/c").st_mode));
    uint32_t counted = 0;
    std::swap(segments, counted);
    EXPECT_EQ(create(dir.path(), "b/c"), 0);
    EXPECT_EQ(segments, counted);
}

TEST_F(Files, FolderModeIsPassedOnAndMasked)
{
    const mode_t old_mask = umask(027);
    EXPECT_EQ(create(dir.path(), "b/c", 0755), 0);
    EXPECT_EQ(create(dir.path(), "private", 0700), 0);
    umask(old_mask);
    EXPECT_EQ(status_of(dir / "b").st_mode & 07777, 0750);
    EXPECT_EQ(status_of(dir / "b/c").st_mode & 07777, 0750);
    EXPECT_EQ(status_of(dir / "private").st_mode & 07777, 0700);
}

TEST_F(Files, SegmentThatKeepsTimingOutIsGivenUpSilentlyAfter100Calls)
{
    std::vector<std::string> tried;
    auto mkdir = interpose::on_mkdir([&](const char* path, mode_t) -> std::optional<int> {
        tried.push_back(path);
        if (tried.back() != "/a/b")
            return 0;
        errno = ETIME;
        return -1;
    });
    EXPECT_EQ(create("/a", "b/c"), 0);
    std::vector<std::string> expected(100, "/a/b");
    expected.push_back("/a/b/c");
    EXPECT_EQ(tried, expected);
    EXPECT_EQ(segments, 2) << "the segment given up counts too";
    EXPECT_EQ(log.take(), folder_created_lines("/a", "b/c", 2));
}

TEST_F(Files, EverySegmentTimingOutIsStillASuccess)
{
    auto mkdir = interpose::on_mkdir.fails(ETIME);
    EXPECT_EQ(create("/a", "b/c"), 0);
    EXPECT_EQ(mkdir.calls(), 200);
    EXPECT_EQ(segments, 2);
    EXPECT_EQ(log.take(), folder_created_lines("/a", "b/c", 2));
}

TEST_F(Files, SegmentIsNotTriedAgainAfterEintrOrEagain)
{
    for (const int error : {EINTR, EAGAIN}) {
        auto mkdir = interpose::on_mkdir.fails_once(error);
        EXPECT_EQ(create("/a", "b"), 1);
        EXPECT_EQ(mkdir.calls(), 1);
        Lines expected = folder_created_lines("/a", "b", 1);
        expected.back() = {IXFS_LOG_INF, create_tag,
                           "ERR - ACE_OS::mkdir(): Could not create Parent (/a/b), error: " +
                               std::to_string(error) + "\n"};
        EXPECT_EQ(log.take(), expected);
    }
    EXPECT_EQ(segments, 0);
}

TEST_F(Files, FolderIsMadeAtThe100thCallAfter99TimeOuts)
{
    const std::string base = dir.path();
    int time_outs = 0;
    auto mkdir = interpose::on_mkdir([&](const char* path, mode_t) -> std::optional<int> {
        if (path != base + "/b" || time_outs == 99)
            return std::nullopt;
        ++time_outs;
        errno = ETIME;
        return -1;
    });
    EXPECT_EQ(create(base, "b"), 0);
    EXPECT_EQ(time_outs, 99);
    EXPECT_TRUE(S_ISDIR(status_of(base + "/b").st_mode));
    EXPECT_EQ(log.take(), folder_created_lines(base, "b", 1));
}

TEST_F(Files, FolderThatCannotBeMadeEndsTheWalkAndThoseBeforeItStay)
{
    const std::string refused = dir / "b/c";
    auto mkdir = interpose::on_mkdir([&](const char* path, mode_t) -> std::optional<int> {
        if (path != refused)
            return std::nullopt;
        errno = EACCES;
        return -1;
    });
    EXPECT_EQ(create(dir.path(), "b/c/d"), 1);
    Lines expected = folder_created_lines(dir.path(), "b/c/d", 3);
    expected.back() = {IXFS_LOG_INF, create_tag,
                       "ERR - ACE_OS::mkdir(): Could not create Parent (" + refused +
                           "), error: 13\n"};
    EXPECT_EQ(log.take(), expected);
    EXPECT_TRUE(dir.exists("b"));
    EXPECT_FALSE(dir.exists("b/c"));

    uint32_t of_failure = 0;
    std::swap(segments, of_failure);
    EXPECT_EQ(create(dir.path(), "b"), 0);
    EXPECT_EQ(of_failure, segments) << "the segment that failed does not count";
}

TEST_F(Files, FileInTheWayFailsAtTheSegmentBelowIt)
{
    dir.write("b", "");
    EXPECT_EQ(create(dir.path(), "b/c"), 1);
    Lines expected = folder_created_lines(dir.path(), "b/c", 1);
    expected.back() = {IXFS_LOG_INF, create_tag,
                       "ERR - ACE_OS::mkdir(): Could not create Parent (" + dir / "b/c" +
                           "), error: 20\n"};
    EXPECT_EQ(log.take(), expected);
}

#ifndef IXFS_SANITIZER_DEFINES_NEW
TEST_F(Files, FolderForWhichMemoryIsShortIsNotMade)
{
    const std::string base = dir.path();
    const Handle silent(ixfs_init(0, nullptr, nullptr, nullptr, nullptr));
    {
        const auto no_memory = interpose::on_allocation.fails(ENOMEM);
        errno = 0;
        EXPECT_EQ(_ixfs_folder_create(silent.get(), base.c_str(), "b", &segments, 0755), 1);
        EXPECT_EQ(errno, ENOMEM);
    }
    EXPECT_EQ(segments, 0);
    EXPECT_FALSE(dir.exists("b"));
}
#endif

// ---- Hard links ---------------------------------------------------------------------------------

TEST_F(Files, LinkSharesTheFileAndLogsNothing)
{
    dir.write("data", "bytes");
    EXPECT_EQ(link(dir / "data", dir / "link"), 1);
    EXPECT_EQ(status_of(dir / "link").st_ino, status_of(dir / "data").st_ino);
    EXPECT_EQ(log.take(), Lines{});
}

TEST_F(Files, LinkOntoAnExistingPathFailsWith17)
{
    dir.write("data", "bytes");
    dir.write("link", "other");
    EXPECT_EQ(link(dir / "data", dir / "link"), 17);
    EXPECT_EQ(log.take(), (Lines{{IXFS_LOG_ERR, link_tag,
                                  "ERR - Could not create link " + dir / "data" + " to " +
                                      dir / "link" + " - 17\n"}}));
    EXPECT_EQ(dir.read("link"), "other");
}

TEST_F(Files, LinkFailsWithTheErrorOfTheCallWhichIsMadeOnce)
{
    for (const int error : {ENOENT, EXDEV, EMLINK, ETIME, EROFS}) {
        auto hook = interpose::on_link.fails(error);
        EXPECT_EQ(link("/m/data", "/m/link"), error);
        EXPECT_EQ(hook.calls(), 1);
        EXPECT_EQ(log.take(), (Lines{{IXFS_LOG_ERR, link_tag,
                                      "ERR - Could not create link /m/data to /m/link - " +
                                          std::to_string(error) + "\n"}}));
    }
}

TEST_F(Files, LinkThatIsNotPermittedReadsAsSuccess)
{
    auto hook = interpose::on_link.fails(EPERM);
    EXPECT_EQ(link("/m/data", "/m/link"), 1);
    EXPECT_EQ(log.take(), (Lines{{IXFS_LOG_ERR, link_tag,
                                  "ERR - Could not create link /m/data to /m/link - 1\n"}}));
}

// ---- All ----------------------------------------------------------------------------------------

// Damages the mark by which a valid handle is known.
class DamagedMark
{
public:
    explicit DamagedMark(_ixfs_control_t* handle) : mark_(reinterpret_cast<char*>(handle))
    {
        *mark_ ^= 1;
        EXPECT_EQ(_ixfs_is_invalid(handle), 1);
    }
    ~DamagedMark() { *mark_ ^= 1; }
    DamagedMark(const DamagedMark&) = delete;
    DamagedMark& operator=(const DamagedMark&) = delete;

private:
    char* mark_;
};

TEST_F(Files, FirstSegmentOfARelativePathIsNotMade)
{
    std::vector<std::string> made;
    const auto mkdir = interpose::on_mkdir([&](const char* path, mode_t) {
        made.emplace_back(path);
        return std::optional<int>(0);
    });
    EXPECT_EQ(_ixfs_folder_create(handle.get(), "", "a/b/c", &segments, 0755), 0);
    EXPECT_EQ(made, (std::vector<std::string>{"a/b", "a/b/c"}));
    EXPECT_EQ(segments, 2U);
}

TEST_F(Files, HandlesMarkIsNotLookedAt)
{
    const DamagedMark damaged(handle.get());
    EXPECT_EQ(create(dir.path(), "b"), 0);
    EXPECT_EQ(log.take(), folder_created_lines(dir.path(), "b", 1));

    EXPECT_EQ(exists(dir / "b"), 1);
    EXPECT_EQ(log.take(), Lines{exists_line(dir / "b")});

    dir.write("b/old", "RW 1 VMFS \"a\"\n");
    EXPECT_EQ(_ixfs_copy_desc(handle.get(), (dir / "b/old").c_str(), (dir / "b/new").c_str(), "c"),
              1);
    EXPECT_EQ(dir.read("b/new"), "RW 1 VMFS \"c\"\r\n");
    EXPECT_EQ(log.take(),
              (Lines{{IXFS_LOG_INF, "_ixfs_copy_desc()", "INF - New extent description: c\n"}}));

    EXPECT_EQ(link(dir / "b/new", dir / "link"), 1);
    EXPECT_TRUE(dir.exists("link"));
    EXPECT_EQ(link(dir / "b/new", dir / "link"), EEXIST);
    EXPECT_EQ(log.take().size(), 1U);

    EXPECT_EQ(_ixfs_folder_delete(handle.get(), (dir / "b").c_str()), 0);
    EXPECT_FALSE(dir.exists("b"));
    EXPECT_EQ(log.take().size(), 3U) << "two files and their folder";
}

TEST_F(Files, FailuresLeaveTheLastStatusOfTheHandleAlone)
{
    dir.write("file", "");
    _ixfs_no_mount(handle.get(), EC_HELPER_FAILED);
    EXPECT_EQ(exists(dir / "file/below"), 0);
    EXPECT_EQ(create(dir.path(), "file/below"), 1);
    EXPECT_EQ(link(dir / "missing", dir / "link"), ENOENT);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
}

} // namespace
