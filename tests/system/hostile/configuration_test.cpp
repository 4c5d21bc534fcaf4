// A VM configuration that is no regular file of the image.
#include "hostile_image.h"

#include "child_process.h"

#include <fcntl.h>
#include <unistd.h>

using testing::Contains;

namespace
{

class HostileConfiguration : public HostileImage
{
protected:
    void expect_not_opened()
    {
        expect_failed_without_view(EC_FILE_NOT_OPENED);
        EXPECT_EQ(errors("readXml"),
                  std::vector<std::string>{
                      "ERR - Failed to open file for reading: " + mounted(configuration) + "\n"});
    }
    const std::string path = at(configuration);
};

class HostileConfigurationLink : public HostileConfiguration,
                                 public testing::WithParamInterface<plant::WayOut>
{
};

TEST_P(HostileConfigurationLink, ToASecretCannotBeOpened)
{
    GetParam().plant(path, host / "secret");
    expect_not_opened();
}

TEST_P(HostileConfigurationLink, ToNothingOutsideCannotBeOpened)
{
    GetParam().plant(path, host / "nothing");
    expect_not_opened();
}

INSTANTIATE_TEST_SUITE_P(Ways, HostileConfigurationLink, testing::ValuesIn(plant::ways_out()),
                         testing::PrintToStringParamName());

class StrangeConfiguration : public HostileConfiguration,
                             public testing::WithParamInterface<plant::Thing>
{
};

TEST_P(StrangeConfiguration, CannotBeOpened)
{
    GetParam().plant(path);
    expect_not_opened();
}

TEST_P(StrangeConfiguration, CannotBeOpenedThroughALinkEither)
{
    plant::link(path, "strange");
    GetParam().plant(at("strange"));
    expect_not_opened();
}

INSTANTIATE_TEST_SUITE_P(Things, StrangeConfiguration, testing::ValuesIn(plant::strange_things()),
                         testing::PrintToStringParamName());

TEST_F(HostileConfiguration, FifoWithAWriterCannotBeOpened)
{
    plant::fifo(path);
    const int both_ends = open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_NE(both_ends, -1);
    ASSERT_EQ(write(both_ends, config_text, sizeof(config_text)),
              static_cast<ssize_t>(sizeof(config_text)));
    expect_not_opened();
    close(both_ends);
}

TEST_F(HostileConfiguration, LinkToItselfCannotBeOpened)
{
    plant::link(path, configuration);
    expect_not_opened();
}

TEST_F(HostileConfiguration, LinkToNothingInTheImageCannotBeOpened)
{
    plant::link(path, "nothing");
    expect_not_opened();
}

TEST_F(HostileConfiguration, LinkToTheProgramItselfCannotBeOpened)
{
    plant::link(path, "/proc/self/exe");
    expect_not_opened();
}

TEST_F(HostileConfiguration, LinkThatLeavesTheImageAndComesBackCannotBeOpened)
{
    plant::file(at("other"), config_text);
    plant::link(path, mounted("other"));
    expect_not_opened();
    plant::link(path, "../../../../../../hostile/" + std::string(image) + "/other");
    expect_not_opened();
}

TEST_F(HostileConfiguration, LinkThatStaysInTheImageIsFollowed)
{
    plant::file(at("vm/configuration"), config_text);
    plant::link(at("hop"), "vm/../vm/./configuration");
    plant::link(path, "../../full/1700000000/hop");
    expect_prepared();
}

} // namespace
