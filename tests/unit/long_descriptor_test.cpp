// Descriptors that are longer than the blocks in which they are read, and what a short one costs.
#include "descriptor_test.h"
#include "interpose.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include <unistd.h>

namespace
{

constexpr std::size_t block_sizes[] = {4096, 65536};

// Lines of many lengths, cut at `size` bytes.
std::string filler(std::size_t size)
{
    std::string lines;
    for (std::size_t line = 0; lines.size() < size; ++line)
        lines += "ddb.comment = " + std::string(line % 97, 'x') + "\n";
    lines.resize(size);
    return lines;
}

class LongDescriptor : public DescriptorTest
{
protected:
    // The lengths of a text after which something stands at the end of one of the first blocks, or
    // across it.
    static std::vector<std::size_t> lengths_before_a_block_ends()
    {
        std::vector<std::size_t> lengths;
        for (const std::size_t size : {block_sizes[0], block_sizes[0] + block_sizes[1],
                                       block_sizes[1], 2 * block_sizes[1]}) {
            for (std::size_t before = 0; before < 12; ++before)
                lengths.push_back(size - before);
        }
        return lengths;
    }
};

TEST_F(LongDescriptor, ExtentIsRewrittenWhereverItStands)
{
    const std::string behind = filler(100'000);
    for (const std::size_t length : lengths_before_a_block_ends()) {
        const std::string before = filler(length - 1) + "\n";
        ASSERT_EQ(copy(before + old_extent + behind), 1) << length;
        ASSERT_TRUE(copied() == before + new_extent + behind) << length;
    }
}

TEST_F(LongDescriptor, UuidIsReplacedWhereverItStands)
{
    handle = make_handle(IXFS_FLAG_NEW_DISK_UUID);
    const std::string behind = filler(100'000);
    for (const std::size_t length : lengths_before_a_block_ends()) {
        const std::string before = filler(length - old_extent.size() - 1) + "\n";
        log.take();
        ASSERT_EQ(copy(old_extent + before + "ddb.uuid = \"60 00\"\n" + behind), 1) << length;
        const Lines lines = log.take();
        ASSERT_EQ(lines.size(), 2U) << length;
        const std::string uuid = lines[1].message.substr(sizeof("INF - New uuid: ") - 1, 47);
        ASSERT_TRUE(copied() == new_extent + before + "ddb.uuid = \"" + uuid + "\"\r\n" + behind)
            << length;
    }
}

TEST_F(LongDescriptor, NulEndsItsLineWhereverThatStands)
{
    using namespace std::string_literals;
    const std::string behind = filler(100'000);
    for (const std::size_t length : lengths_before_a_block_ends()) {
        const std::string before = filler(length - old_extent.size() - 1) + "\n";
        ASSERT_EQ(copy(old_extent + before + "kept\0RW lost\n"s + behind), 1) << length;
        ASSERT_TRUE(copied() == new_extent + before + "kept" + behind) << length;
    }
}

// Pieces are counted from where the line starts, in whatever blocks they are read.
TEST_F(LongDescriptor, PieceOfALineOfManyBlocksCountsAsALine)
{
    for (const std::size_t pieces : {3U, 4U, 5U, 63U, 64U, 65U, 68U, 69U, 130U}) {
        const std::string line(pieces * 1023, 'x');
        EXPECT_EQ(copy(line + old_extent), 1) << pieces;
        EXPECT_TRUE(copied() == line + new_extent) << pieces;
        EXPECT_EQ(copy(line + "x" + old_extent), 0) << pieces;
        EXPECT_TRUE(copied() == line + "x" + old_extent) << pieces;
    }
}

TEST_F(LongDescriptor, NothingBehindAnExtentOfAnotherTypeIsWritten)
{
    for (const std::size_t length : lengths_before_a_block_ends()) {
        const std::string before = filler(length - 1) + "\n";
        ASSERT_EQ(copy(before + "RW 2048 FLAT \"a\" 0\n" + filler(100'000)), 0) << length;
        ASSERT_TRUE(copied() == before) << length;
    }
}

TEST_F(LongDescriptor, PaddingOfManyBlocksIsNotCopied)
{
    const std::string lines = filler(99'999) + "\n";
    EXPECT_EQ(copy(old_extent + lines + std::string(300'000, '\0')), 1);
    EXPECT_TRUE(copied() == new_extent + lines);
}

// ---- Calls and memory ---------------------------------------------------------------------------

TEST_F(LongDescriptor, IsReadAndWrittenInLargeBlocks)
{
    const std::string text = filler(1 << 20);
    dir.write("old", old_extent + text);
    {
        const auto read = interpose::on_read.watch();
        const auto write = interpose::on_write.watch();
        EXPECT_EQ(copy_file(dir / "old", dir / "new"), 1);
        EXPECT_LE(read.calls(), 20);
        EXPECT_LE(write.calls(), 40);
    }
    EXPECT_TRUE(copied() == new_extent + text);
}

TEST_F(LongDescriptor, ThatIsShortTakesAsFewCallsAsTheJobNeedsAndNoMemory)
{
    handle.reset(ixfs_init(0, nullptr, nullptr, nullptr, nullptr)); // a recorder takes memory
    dir.write("old", old_extent + filler(1000));
    const std::string old_path = dir / "old";
    const std::string new_path = dir / "new";
    const auto open = interpose::on_open.watch();
    const auto stat = interpose::on_stat.watch();
    const auto read = interpose::on_read.watch();
    const auto write = interpose::on_write.watch();
    const auto close = interpose::on_close.watch();
    const auto memory = interpose::on_allocation.watch(); // last: the others take some
    const int result =
        _ixfs_copy_desc(handle.get(), old_path.c_str(), new_path.c_str(), "vm1-flat.vmdk");
    const int calls[] = {open.calls(), stat.calls(), read.calls(), write.calls(), close.calls()};
    EXPECT_EQ(memory.calls(), 0);
    EXPECT_EQ(result, 1);
    EXPECT_THAT(calls, testing::ElementsAre(2, 0, 2, 1, 2)) << "the second read finds the end";
}

TEST_F(LongDescriptor, IsCopiedAlsoWhereMemoryIsShort)
{
    handle.reset(ixfs_init(0, nullptr, nullptr, nullptr, nullptr));
    const std::string text = filler(300'000) + std::string(5000, 'x') + "\n";
    dir.write("old", text + old_extent);
    const std::string old_path = dir / "old";
    const std::string new_path = dir / "new";
    int result = 0;
    {
        const auto memory = interpose::on_allocation.fails(ENOMEM);
        result = _ixfs_copy_desc(handle.get(), old_path.c_str(), new_path.c_str(), "vm1-flat.vmdk");
#ifndef IXFS_SANITIZER_DEFINES_NEW
        EXPECT_GT(memory.calls(), 0);
#endif
    }
    EXPECT_EQ(result, 1);
    EXPECT_TRUE(copied() == text + new_extent);
}

// ---- Interruptions and failures -----------------------------------------------------------------

TEST_F(LongDescriptor, CallsThatASignalInterruptsAreMadeAgain)
{
    const std::string text = filler(200'000);
    dir.write("old", old_extent + text);
    {
        const auto interrupted = [number = 0](auto...) mutable {
            errno = EINTR;
            return ++number % 2 != 0 ? std::optional<ssize_t>(-1) : std::nullopt;
        };
        const auto read = interpose::on_read(interrupted);
        const auto write = interpose::on_write(interrupted);
        EXPECT_EQ(copy_file(dir / "old", dir / "new"), 1);
    }
    EXPECT_TRUE(copied() == new_extent + text);
    EXPECT_EQ(log.take(), Lines{extent_line()});
}

TEST_F(LongDescriptor, HalfALineBeforeAReadErrorIsNotCopied)
{
    const std::string text = old_extent + filler(200'000);
    dir.write("old", text);
    {
        const auto read = interpose::on_read.fails(EIO, 3);
        EXPECT_EQ(copy_file(dir / "old", dir / "new"), 0);
    }
    EXPECT_EQ(log.take(), (Lines{extent_line(), error("error reading old file - 5")}));
    const std::string copy = copied();
    EXPECT_GT(copy.size(), block_sizes[0]);
    EXPECT_EQ(copy.back(), '\n');
    EXPECT_TRUE(new_extent + text.substr(old_extent.size(), copy.size() - new_extent.size()) ==
                copy);
}

TEST_F(LongDescriptor, NewFileMayTakeAFewBytesAtATime)
{
    const std::string text = filler(200'000);
    dir.write("old", old_extent + text);
    {
        const auto few = interpose::on_write([](int file, const void* bytes, std::size_t size) {
            return std::optional(write(file, bytes, std::min<std::size_t>(size, 999)));
        });
        EXPECT_EQ(copy_file(dir / "old", dir / "new"), 1);
    }
    EXPECT_TRUE(copied() == new_extent + text);
}

TEST_F(LongDescriptor, NothingIsWrittenBehindAWriteError)
{
    const std::string text = filler(200'000);
    dir.write("old", old_extent + text);
    {
        const auto write = interpose::on_write.fails_once(ENOSPC, 2);
        EXPECT_EQ(copy_file(dir / "old", dir / "new"), 0);
        EXPECT_EQ(write.calls(), 2);
    }
    EXPECT_EQ(log.take(), (Lines{extent_line(), error("error writing new file - 28")}));
    const std::string copy = copied();
    EXPECT_TRUE(copy == (new_extent + text).substr(0, copy.size()));
}

TEST_F(LongDescriptor, NewFileThatTakesNothingAndTellsNoErrorIsAnError)
{
    dir.write("old", old_extent + filler(200'000));
    const auto write = interpose::on_write.returns(0);
    EXPECT_EQ(copy_file(dir / "old", dir / "new"), 0);
    EXPECT_EQ(log.take(), (Lines{extent_line(), error("error writing new file - 5")}));
}

} // namespace
