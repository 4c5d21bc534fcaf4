// A VM configuration that is much larger than its text.
#include "hostile_image.h"

#include "attacker.h"

#include <filesystem>

#include <fcntl.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

constexpr std::chrono::seconds long_enough(60);
constexpr std::uintmax_t three_gigabytes = 3ULL << 30;
constexpr long most_memory = 32 << 10; // kB, beside the text

class LargeConfiguration : public HostileImage
{
protected:
    // The two lines that tell how much was read, and how much of it is text.
    void expect_sizes(std::uintmax_t size, std::size_t text) const
    {
        const std::string bytes = std::to_string(size);
        EXPECT_EQ(log.with_message("INF - Size reported by stat: " + bytes + " bytes\n").size(),
                  1U);
        EXPECT_EQ(log.with_message("INF - Read file size: " + bytes + "\n").size(), 1U);
        EXPECT_EQ(
            log.with_message("INF - Size after striping padding: " + std::to_string(text) + "\n")
                .size(),
            1U);
    }
    const std::string path = at(configuration);
};

TEST_F(LargeConfiguration, OfThreeGigabytesOfPaddingTakesNoMemory)
{
    fs::resize_file(path, three_gigabytes);
    const Attempt attempt = prepare(long_enough);
    EXPECT_EQ(attempt.status, EC_OK);
    EXPECT_EQ(attempt.config, config_text);
    EXPECT_LT(attempt.memory, most_memory);
    expect_sizes(three_gigabytes, sizeof(config_text) - 1);
}

TEST_F(LargeConfiguration, OfNothingButPaddingTakesNoMemory)
{
    plant::file(path, "");
    fs::resize_file(path, three_gigabytes);
    const Attempt attempt = prepare(long_enough);
    EXPECT_EQ(attempt.status, EC_OK);
    EXPECT_EQ(attempt.config, "");
    EXPECT_LT(attempt.memory, most_memory);
    expect_sizes(three_gigabytes, 0);
}

TEST_F(LargeConfiguration, WithTextBehindThePaddingYieldsTheTextBeforeIt)
{
    fs::resize_file(path, three_gigabytes);
    const int file = open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    ASSERT_EQ(write(file, "<hidden/>", 9), 9);
    close(file);
    const Attempt attempt = prepare(long_enough);
    EXPECT_EQ(attempt.status, EC_OK);
    EXPECT_EQ(attempt.config, config_text);
    EXPECT_LT(attempt.memory, most_memory);
    expect_sizes(three_gigabytes + 9, sizeof(config_text) - 1);
}

TEST_F(LargeConfiguration, TakesTheMemoryOfItsText)
{
    const std::string text(24 << 20, 't');
    plant::file(path, text);
    fs::resize_file(path, three_gigabytes);
    const Attempt attempt = prepare(long_enough);
    EXPECT_EQ(attempt.status, EC_OK);
    EXPECT_TRUE(attempt.config == text);
    EXPECT_LT(attempt.memory, 3 * static_cast<long>(text.size() >> 10) + most_memory);
    expect_sizes(three_gigabytes, text.size());
}

TEST_F(LargeConfiguration, ThatGrowsWithoutAnEndIsReadToAnEnd)
{
    Attacker grower(growing(path));
    const Attempt attempt = prepare_elsewhere(order, long_enough);
    EXPECT_EQ(grower.stop(), 0);
    EXPECT_FALSE(attempt.hung);
    EXPECT_EQ(attempt.status, EC_OK);
    EXPECT_EQ(attempt.config, config_text);
    EXPECT_LT(attempt.memory, most_memory);
}

} // namespace
