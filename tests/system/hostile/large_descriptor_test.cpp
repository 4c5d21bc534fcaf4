// A disk descriptor that is much larger than a descriptor is.
#include "hostile_image.h"

#include "attacker.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace
{

constexpr std::chrono::seconds long_enough(60);
constexpr std::uintmax_t three_gigabytes = 3ULL << 30;
constexpr long most_memory = 32 << 10; // kB

class LargeDescriptor : public HostileImage
{
protected:
    const std::string path = at("vm/a.vmdk.desc");
};

TEST_F(LargeDescriptor, OfThreeGigabytesOfPaddingTakesNoMemory)
{
    fs::resize_file(path, three_gigabytes);
    const Attempt attempt = prepare(long_enough);
    EXPECT_EQ(attempt.status, EC_OK);
    EXPECT_LT(attempt.memory, most_memory);
    EXPECT_LT(fs::file_size(in_view("a.vmdk")), fs::file_size(at("vm/b.vmdk.desc")) * 2);
}

TEST_F(LargeDescriptor, ThatGrowsWithoutAnEndIs14)
{
    Attacker grower(growing(path));
    const Attempt attempt = prepare_elsewhere(order, long_enough);
    EXPECT_EQ(grower.stop(), 0);
    EXPECT_FALSE(attempt.hung);
    EXPECT_EQ(attempt.status, EC_FILE_NOT_COPIED);
    EXPECT_LT(attempt.memory, most_memory);
}

} // namespace
