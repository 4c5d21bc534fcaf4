// A disk descriptor that is much larger than a descriptor is.
#include "hostile_image.h"

#include "child_process.h"

#include <filesystem>

#include <unistd.h>

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

// Grows by more than can be read in the time, and without taking room.
[[noreturn]] void grow(const std::string& path)
{
    for (off_t size = 1 << 20;; size += 64 << 20) {
        if (truncate(path.c_str(), size) != 0)
            _exit(1);
        usleep(1000);
    }
}

TEST_F(LargeDescriptor, ThatGrowsWithoutAnEndIsCopiedToAnEnd)
{
    ChildProcess grower(STDERR_FILENO, [this](ChildProcess::Parent& parent) -> int {
        parent.pause();
        grow(path);
    });
    grower.wait_for_pause();
    grower.go_on();
    const Attempt attempt = prepare_elsewhere(order, long_enough);
    grower.kill();
    EXPECT_FALSE(attempt.hung);
    EXPECT_LT(attempt.memory, most_memory);
}

} // namespace
