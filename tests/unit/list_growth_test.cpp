// How the returned list grows: with room for all at once, and without being copied at each call.
#include "ixfs_vmir.h"

#include "string_of.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{

std::vector<VmirPath> records(std::size_t count)
{
    VmirPath record;
    record.datastoreViewDescPath = string_of("[ds] backups/host/_vmir/disk.vmdk");
    return std::vector<VmirPath>(count, record);
}

TEST(ListGrowth, EmptyListGetsRoomForAllRecordsAtOnce)
{
    std::vector<std::string> out;
    convertVmdkPathsListToCharArrays(records(100), out);
    EXPECT_EQ(out.size(), 100U);
    EXPECT_EQ(out.capacity(), 100U);
}

TEST(ListGrowth, ListWithRoomForAllRecordsStaysWhereItIs)
{
    std::vector<std::string> out{"there before"};
    out.reserve(101);
    const std::string* const place = out.data();
    convertVmdkPathsListToCharArrays(records(100), out);
    EXPECT_EQ(out.size(), 101U);
    EXPECT_EQ(out.data(), place);
    EXPECT_EQ(out.capacity(), 101U);
}

TEST(ListGrowth, ManyShortCallsMoveTheListRarely)
{
    constexpr std::size_t calls = 20'000;
    constexpr int doublings = 15; // to hold as many
    const std::vector<VmirPath> one = records(1);
    std::vector<std::string> out;
    int moves = 0;
    for (std::size_t i = 0; i < calls; ++i) {
        const std::size_t room = out.capacity();
        convertVmdkPathsListToCharArrays(one, out);
        moves += out.capacity() != room;
    }
    EXPECT_EQ(out.size(), calls);
    EXPECT_LE(moves, 2 * doublings);
}

} // namespace
