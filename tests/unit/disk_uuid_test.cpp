#include "ixfs_vmir.h"

#include "grouping_locale.h"
#include "interpose.h"

#include <gmock/gmock.h>

#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace
{

constexpr int many = 1000;

// Whether the text is sixteen bytes in lower-case hexadecimal, in two groups of eight.
bool is_well_formed(const std::string& uuid)
{
    if (uuid.size() != 47)
        return false;
    for (std::size_t i = 0; i < uuid.size(); ++i) {
        const std::string allowed = i == 23 ? "-" : i % 3 == 2 ? " " : "0123456789abcdef";
        if (allowed.find(uuid[i]) == std::string::npos)
            return false;
    }
    return true;
}

TEST(DiskUuid, IsSixteenLowerCaseBytesInTwoGroupsOfEight)
{
    for (int i = 0; i < many; ++i) {
        const std::string uuid = getVmdkUuid();
        EXPECT_TRUE(is_well_formed(uuid)) << uuid;
    }
}

TEST(DiskUuid, TwoCallsReturnDifferentTexts)
{
    std::set<std::string> drawn;
    for (int i = 0; i < many; ++i)
        drawn.insert(getVmdkUuid());
    EXPECT_EQ(drawn.size(), std::size_t{many});
}

TEST(DiskUuid, Character18Is4AndCharacter24Is8Or9OrAOrB)
{
    std::set<char> variants;
    for (int i = 0; i < many; ++i) {
        const std::string uuid = getVmdkUuid();
        EXPECT_EQ(uuid.at(18), '4') << uuid;
        variants.insert(uuid.at(24));
    }
    EXPECT_EQ(variants, (std::set<char>{'8', '9', 'a', 'b'}));
}

TEST(DiskUuid, EachCallIsSeededAnewFromTheSystemsEntropy)
{
    auto getrandom_hook = interpose::on_getrandom.watch();
    getVmdkUuid();
    const int after_one = getrandom_hook.calls();
    getVmdkUuid();
    EXPECT_GE(after_one, 1);
    EXPECT_EQ(getrandom_hook.calls(), 2 * after_one);
}

TEST(DiskUuid, ThrowsWhereTheRandomSourceFails)
{
    auto getrandom_hook = interpose::on_getrandom.fails(EIO);
    EXPECT_THROW(getVmdkUuid(), std::runtime_error);
}

TEST(DiskUuid, DoesNotFollowTheProcesssLocale)
{
    const GroupingLocale locale;
    const std::string uuid = getVmdkUuid();
    EXPECT_TRUE(is_well_formed(uuid)) << uuid;
}

TEST(DiskUuid, ThreadsDrawAtTheSameTime)
{
    constexpr int threads = 4;
    std::vector<std::string> drawn[threads];
    std::vector<std::thread> running;
    for (std::vector<std::string>& uuids : drawn)
        running.emplace_back([&uuids] {
            for (int i = 0; i < many; ++i)
                uuids.push_back(getVmdkUuid());
        });
    for (std::thread& thread : running)
        thread.join();
    std::set<std::string> all;
    for (const std::vector<std::string>& uuids : drawn)
        all.insert(uuids.begin(), uuids.end());
    EXPECT_EQ(all.size(), std::size_t{threads * many});
}

} // namespace
