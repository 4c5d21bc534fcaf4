#include "image_test.h"
#include "interpose.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;
using namespace std::string_literals;

constexpr char read_step[] = "readXml";

Line found_line(std::size_t size, const std::string& path)
{
    return {IXFS_LOG_INF, read_step,
            "INF - Found xml file of size: " + std::to_string(size) + " bytes, " + path + "\n"};
}

Line reported_size_line(std::size_t size)
{
    return {IXFS_LOG_INF, read_step,
            "INF - Size reported by stat: " + std::to_string(size) + " bytes\n"};
}

const Line waiting_line{IXFS_LOG_INF, read_step,
                        "INF - waiting for VM Config file to be accessible\n"};

// Sleeps that end at once, and what was asked of them.
class SkippedSleeps
{
public:
    explicit SkippedSleeps(std::function<void(int)> after_sleep = [](int) {})
        : after_sleep_(std::move(after_sleep))
    {
    }

    int count() const { return hook_.calls(); }

private:
    std::function<void(int)> after_sleep_;
    int sleeps_ = 0;
    decltype(interpose::on_sleep)::Hook hook_ =
        interpose::on_sleep([this](const timespec* wanted, timespec*) {
            EXPECT_EQ(wanted->tv_sec, 10);
            EXPECT_EQ(wanted->tv_nsec, 0);
            after_sleep_(++sleeps_);
            return std::optional<int>(0);
        });
};

// What the VM configuration's reading comes to, for a VM without disks.
class Configuration : public ImageTest
{
protected:
    // A failure's lines after the two that tell which file is to be read.
    Lines reading_lines() const
    {
        const Lines lines = image_lines();
        return Lines(lines.begin() + 2, lines.end());
    }

    Line error(const std::string& front, const std::string& back = "") const
    {
        return {IXFS_LOG_ERR, read_step, "ERR - " + front + config_path() + back + "\n"};
    }

    void expect_no_view()
    {
        EXPECT_FALSE(fs::exists(view_folder));
        EXPECT_EQ(helper_commands(), mounted_and_unmounted);
    }

    void expect_not_opened()
    {
        config = "untouched";
        EXPECT_EQ(prepare(), 12);
        EXPECT_EQ(config, "untouched");
        EXPECT_EQ(reading_lines(),
                  (Lines{exists_line(config_path()), error("Failed to open file for reading: ")}));
        expect_no_view();
    }

    // Asks `error_of` for the error of each read of the configuration, 0 being none. Reads count
    // from 1 once the size is known; the priming ones before that are all 0.
    auto on_config_read(std::function<int(int number)> error_of)
    {
        return interpose::on_read(
            [this, error_of, number = 0](int descriptor, void*, std::size_t) mutable {
                const std::string open = "/proc/self/fd/" + std::to_string(descriptor);
                if (fs::read_symlink(open) != config_path())
                    return std::optional<ssize_t>();
                number += log.with_tag(read_step).size() == lines_until_size_is_known;
                errno = error_of(number);
                return errno != 0 ? std::optional<ssize_t>(-1) : std::nullopt;
            });
    }
    static constexpr std::size_t lines_until_size_is_known = 2;
};

// ---- Text ---------------------------------------------------------------------------------------

TEST_F(Configuration, FileWithoutNulIsReturnedUnchanged)
{
    const std::string text = "<vm>\r\n\tname\xff\n</vm>\n\n";
    write_config(text);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(config, text);
    EXPECT_EQ(image_lines(),
              config_lines(text.size(), text.size()) + lock_lines() + new_folder_lines());
}

TEST_F(Configuration, TextEndsAtTheFirstNulWhereverThatStands)
{
    write_config("ab\0cd"s);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(config, "ab");
    EXPECT_EQ(image_lines(), config_lines(5, 2) + lock_lines() + new_folder_lines());
}

TEST_F(Configuration, PaddingIsCut)
{
    write_config("<vm/>\n" + std::string(506, '\0'));
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(config, "<vm/>\n");
    EXPECT_EQ(image_lines(), config_lines(512, 6) + lock_lines() + new_folder_lines());
}

// As much padding as nobody would read, in a sparse file.
TEST_F(Configuration, HugePaddingIsCountedAndNotRead)
{
    constexpr long size = 1L << 40;
    write_config("<vm/>");
    fs::resize_file(config_path(), size);
    std::size_t bytes_read = 0;
    auto read = interpose::on_read([&](int, void*, std::size_t room) {
        bytes_read += room;
        return std::optional<ssize_t>();
    });
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(config, "<vm/>");
    EXPECT_LT(config.capacity(), 2U << 20);
    EXPECT_LT(bytes_read, 100U << 20);
    EXPECT_EQ(image_lines(), config_lines(size, 5) + lock_lines() + new_folder_lines());
}

TEST_F(Configuration, FileThatGrowsForEverIs13)
{
    auto read = on_config_read([this](int number) {
        if (number != 0)
            std::ofstream(config_path(), std::ios::app) << std::string(1 << 16, 'x');
        return 0;
    });
    EXPECT_EQ(prepare(), 13);
    EXPECT_EQ(reading_lines().back(), error("Failed to read contents of file: "));
    EXPECT_LT(config.size(), 66U << 20);
}

TEST_F(Configuration, FileWhoseFirstByteIsNulIsAnEmptyText)
{
    write_config("\0text"s);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(config, "");
    EXPECT_EQ(image_lines(), config_lines(5, 0) + lock_lines() + new_folder_lines());
}

TEST_F(Configuration, LargeFileIsReadWhole)
{
    std::string text;
    while (text.size() < 3 << 20)
        text += std::to_string(text.size()) + "\n";
    write_config(text);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_TRUE(config == text);
}

TEST_F(Configuration, FilesOfAllSizesAreReadWhole)
{
    for (const std::size_t size : {14U, 15U, 16U, 8192U, 131'072U, 1U << 20, 1U << 21}) {
        for (const std::size_t length : {size - 1, size, size + 1}) {
            std::string text(length, 'x');
            text.back() = 'y';
            write_config(text);
            config.clear();
            config.shrink_to_fit();
            ASSERT_EQ(prepare(), EC_OK) << length;
            ASSERT_TRUE(config == text) << length;
        }
    }
}

TEST_F(Configuration, LargeFileIsReadByFewCallsIntoRoomForItsTextAlone)
{
    const std::string text(20 << 20, 'x');
    write_config(text);
    auto read = interpose::on_read.watch();
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_TRUE(config == text);
    EXPECT_LT(read.calls(), 300);
    EXPECT_LE(config.capacity(), text.size() + 1);
}

TEST_F(Configuration, LargeTextKeepsNoRoomForItsPadding)
{
    const std::string text(3 << 20, 'x');
    write_config(text);
    fs::resize_file(config_path(), 200 << 20);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_TRUE(config == text);
    EXPECT_LE(config.capacity(), 2 * text.size());
}

#ifndef IXFS_SANITIZER_DEFINES_NEW
TEST_F(Configuration, LargeFileForWhichThereIsNotAllTheMemoryIsReadUpToItsNul)
{
    const std::string text(3 << 20, 'x');
    constexpr std::size_t size = 200 << 20;
    write_config(text);
    fs::resize_file(config_path(), size);
    const auto memory = interpose::on_allocation([](std::size_t wanted) {
        return wanted >= size ? std::optional<void*>(nullptr) : std::nullopt;
    });
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_TRUE(config == text);
}
#endif

TEST_F(Configuration, EarlierContentIsReplaced)
{
    config = "earlier content, longer than the file's";
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(config, "<vm/>");
}

TEST_F(Configuration, FileThatGrowsBehindItsSizeIsReadToItsEnd)
{
    auto read = on_config_read([this](int number) {
        if (number == 1)
            write_config("<vm>longer</vm>");
        return 0;
    });
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(config, "<vm>longer</vm>");
    Lines expected = config_lines();
    expected[5] = {IXFS_LOG_INF, read_step, "INF - Read file size: 15\n"};
    expected[6] = {IXFS_LOG_INF, read_step, "INF - Size after striping padding: 15\n"};
    EXPECT_EQ(image_lines(), expected + lock_lines() + new_folder_lines());
}

TEST_F(Configuration, SizeThatStatReportsIsOnlyLogged)
{
    auto stat = interpose::on_stat([&](const char* path, struct stat* status) {
        if (path != config_path())
            return std::optional<int>();
        status->st_mode = S_IFREG;
        status->st_size = 4711;
        return std::optional<int>(0);
    });
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(config, "<vm/>");
    Lines expected = config_lines();
    expected[3] = reported_size_line(4711);
    EXPECT_EQ(image_lines(), expected + lock_lines() + new_folder_lines());
}

// ---- Waiting ------------------------------------------------------------------------------------

TEST_F(Configuration, FileThatShowsUpAfterTheSecondCheckIsRead)
{
    fs::rename(config_path(), in_image("late"));
    const SkippedSleeps sleeps([&](int sleep) {
        if (sleep == 2)
            fs::rename(in_image("late"), config_path());
    });
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(config, "<vm/>");
    EXPECT_EQ(sleeps.count(), 2);
    Lines expected = config_lines();
    expected.insert(expected.begin() + 2, {waiting_line, waiting_line});
    EXPECT_EQ(image_lines(), expected + lock_lines() + new_folder_lines());
}

TEST_F(Configuration, SleepThatASignalInterruptsIsNotResumed)
{
    fs::rename(config_path(), in_image("late"));
    int sleeps = 0;
    auto interrupted = interpose::on_sleep([&](const timespec*, timespec*) -> std::optional<int> {
        if (++sleeps > 1)
            return 0;
        fs::rename(in_image("late"), config_path());
        errno = EINTR;
        return -1;
    });
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(sleeps, 1);
    EXPECT_EQ(config, "<vm/>");
}

TEST_F(Configuration, FileThatNeverShowsUpIs142AfterThreeChecksAndTwoSleeps)
{
    fs::remove(config_path());
    int checks = 0;
    auto access = interpose::on_access([&](const char* path, int) {
        checks += path == config_path();
        return std::optional<int>();
    });
    const SkippedSleeps sleeps;
    config = "untouched";
    EXPECT_EQ(prepare(), 142);
    EXPECT_EQ(config, "untouched");
    EXPECT_EQ(checks, 3);
    EXPECT_EQ(sleeps.count(), 2);
    EXPECT_EQ(reading_lines(),
              (Lines{waiting_line, waiting_line, error("VM Config file does not exist: ")}));
    expect_no_view();
}

TEST_F(Configuration, CheckThatTimesOutCountsAsOne)
{
    int time_outs = 0;
    auto access = interpose::on_access([&](const char* path, int) {
        if (path != config_path())
            return std::optional<int>();
        ++time_outs;
        errno = ETIME;
        return std::optional<int>(-1);
    });
    const SkippedSleeps sleeps;
    EXPECT_EQ(prepare(), 142);
    EXPECT_EQ(time_outs, 300);
    EXPECT_EQ(sleeps.count(), 2);
    const Line timed_out{IXFS_LOG_ERR, "_ixfs_file_exists()",
                         "ERR - ACE_OS::access(" + config_path() +
                             ") failed with semaphoere timeout\n"};
    EXPECT_EQ(reading_lines(), (Lines{timed_out, waiting_line, timed_out, waiting_line, timed_out,
                                      error("VM Config file does not exist: ")}));
}

// ---- Failures -----------------------------------------------------------------------------------

TEST_F(Configuration, EmptyFileIs13)
{
    write_config("");
    config = "untouched";
    EXPECT_EQ(prepare(), 13);
    EXPECT_EQ(config, "untouched");
    EXPECT_EQ(reading_lines(), (Lines{exists_line(config_path()), reported_size_line(0),
                                      error("Failed to stat file: ", " and determine size")}));
    expect_no_view();
}

TEST_F(Configuration, FileWhoseSizeCannotBeToldIs13)
{
    auto seek = interpose::on_seek.fails(EIO);
    config = "untouched";
    EXPECT_EQ(prepare(), 13);
    EXPECT_EQ(config, "untouched");
    EXPECT_EQ(reading_lines(), (Lines{exists_line(config_path()), reported_size_line(5),
                                      error("Failed to stat file: ", " and determine size")}));
}

TEST_F(Configuration, FileOfWhichNothingIsToldIs12)
{
    auto stat = interpose::on_stat([&](const char* path, struct stat*) {
        if (path != config_path())
            return std::optional<int>();
        errno = EIO;
        return std::optional<int>(-1);
    });
    expect_not_opened();
}

TEST_F(Configuration, FifoIs12AtOnce)
{
    fs::remove(config_path());
    ASSERT_EQ(mkfifo(config_path().c_str(), 0600), 0);
    expect_not_opened();
}

TEST_F(Configuration, FolderIs12)
{
    fs::remove(config_path());
    fs::create_directory(config_path());
    expect_not_opened();
}

TEST_F(Configuration, LinkOutOfTheImageIs12)
{
    const TempDir elsewhere;
    elsewhere.write("secret", "secret");
    fs::remove(config_path());
    fs::create_symlink(elsewhere / "secret", config_path());
    expect_not_opened();
}

TEST_F(Configuration, LinkThatLeadsNowhereIs12AtOnce)
{
    fs::remove(config_path());
    fs::create_symlink("nowhere", config_path());
    expect_not_opened();
}

TEST_F(Configuration, LinkToAFifoIs12AtOnce)
{
    fs::remove(config_path());
    ASSERT_EQ(mkfifo(in_image("fifo").c_str(), 0600), 0);
    fs::create_symlink("fifo", config_path());
    expect_not_opened();
}

// What the file becomes between the look at it and its opening counts, too.
TEST_F(Configuration, FileThatTurnsIntoAFifoIs12AtOnce)
{
    auto open = interpose::on_open([this](const char* path, int) {
        if (path == config_path()) {
            fs::remove(config_path());
            EXPECT_EQ(mkfifo(config_path().c_str(), 0600), 0);
        }
        return std::optional<int>();
    });
    expect_not_opened();
}

TEST_F(Configuration, LinksWithinTheImageAreFollowed)
{
    fs::rename(config_path(), mount_point / "backups/real");
    fs::create_symlink("../../../real", in_image("../hop"));
    fs::create_symlink("../hop", config_path());
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(config, "<vm/>");
    EXPECT_EQ(image_lines(), config_lines() + lock_lines() + new_folder_lines());
}

TEST_F(Configuration, FileThatCannotBeOpenedIs12)
{
    fs::remove(config_path());
    auto access = interpose::on_access([&](const char* path, int) {
        return path == config_path() ? std::optional<int>(0) : std::nullopt;
    });
    expect_not_opened();
}

TEST_F(Configuration, FileThatCannotBeReadIs13)
{
    const std::string text(1'000'000, 'x');
    write_config(text);
    auto read = on_config_read([](int number) { return number == 3 ? EIO : 0; });
    EXPECT_EQ(prepare(), 13);
    EXPECT_EQ(reading_lines(), (Lines{exists_line(config_path()), reported_size_line(text.size()),
                                      found_line(text.size(), config_path()),
                                      error("Failed to read contents of file: ")}));
    EXPECT_GT(config.size(), 0);
    EXPECT_LT(config.size(), text.size());
    EXPECT_EQ(config, text.substr(0, config.size())) << "what was read is kept";
    expect_no_view();
}

TEST_F(Configuration, PaddingThatCannotBeReadIs13)
{
    const std::string text = "<vm/>" + std::string(3'000'000, '\0');
    write_config(text);
    auto read = on_config_read([](int number) { return number == 4 ? EIO : 0; });
    EXPECT_EQ(prepare(), 13);
    EXPECT_EQ(reading_lines(), (Lines{exists_line(config_path()), reported_size_line(text.size()),
                                      found_line(text.size(), config_path()),
                                      error("Failed to read contents of file: ")}));
    EXPECT_EQ(config, "<vm/>");
}

// The room for its text grows with what is read.
TEST_F(Configuration, TextOfAFileOfAnIncredibleSizeIsRead)
{
    const std::string text(3'000'000, 'x');
    write_config(text);
    std::filesystem::resize_file(config_path(), std::uintmax_t{1} << 32);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(config, text);
    EXPECT_LE(config.capacity(), 2 * text.size());
}

TEST_F(Configuration, AbsurdSizeIsThrownAtTheCallerAndTheImageUnmounted)
{
    const auto seek = interpose::on_seek([](int, off64_t, int whence) {
        constexpr off64_t absurd = std::numeric_limits<off64_t>::max() - 1;
        return whence == SEEK_SET ? std::nullopt : std::optional<off64_t>(absurd);
    });
    EXPECT_THROW(prepare(), std::length_error);
    EXPECT_EQ(helper_commands(), mounted_and_unmounted);
    EXPECT_EQ(config, "");
    expect_no_view();
}

TEST_F(Configuration, PrimingReadThatFailsIsNotNoticed)
{
    int primings = 0;
    auto read = on_config_read([&](int number) {
        primings += number == 0;
        return number == 0 ? EIO : 0;
    });
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(primings, 1);
    EXPECT_EQ(config, "<vm/>");
    EXPECT_EQ(image_lines(), config_lines() + lock_lines() + new_folder_lines());
}

TEST_F(Configuration, TextIsKeptWhenALaterStepFails)
{
    entries = {"no datastore"};
    EXPECT_EQ(prepare(), EC_INVALID_PARAMETER);
    EXPECT_EQ(config, "<vm/>");
}

} // namespace
