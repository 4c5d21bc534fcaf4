// A disk descriptor that is no regular file of the image.
#include "hostile_image.h"

#include <fcntl.h>
#include <unistd.h>

namespace
{

class HostileDescriptor : public HostileImage
{
protected:
    void expect_not_copied()
    {
        expect_failed_without_view(EC_FILE_NOT_COPIED);
        EXPECT_EQ(errors("copyOrLinkPath"),
                  std::vector<std::string>{"ERR - Failed copying Disk Descriptor (14): from " +
                                           mounted("vm/a.vmdk.desc") + " to " +
                                           mounted("_vmir/a.vmdk") + "\n"});
    }
    const std::string path = at("vm/a.vmdk.desc");
};

class HostileDescriptorLink : public HostileDescriptor,
                              public testing::WithParamInterface<plant::WayOut>
{
};

TEST_P(HostileDescriptorLink, ToASecretCannotBeCopied)
{
    GetParam().plant(path, host / "descriptor");
    expect_not_copied();
}

TEST_P(HostileDescriptorLink, ToNothingOutsideCannotBeCopied)
{
    GetParam().plant(path, host / "nothing");
    expect_not_copied();
}

INSTANTIATE_TEST_SUITE_P(Ways, HostileDescriptorLink, testing::ValuesIn(plant::ways_out()),
                         testing::PrintToStringParamName());

class StrangeDescriptor : public HostileDescriptor, public testing::WithParamInterface<plant::Thing>
{
};

TEST_P(StrangeDescriptor, CannotBeCopied)
{
    GetParam().plant(path);
    expect_not_copied();
}

TEST_P(StrangeDescriptor, CannotBeCopiedThroughALinkEither)
{
    plant::link(path, "strange");
    GetParam().plant(at("vm/strange"));
    expect_not_copied();
}

INSTANTIATE_TEST_SUITE_P(Things, StrangeDescriptor, testing::ValuesIn(plant::strange_things()),
                         testing::PrintToStringParamName());

TEST_F(HostileDescriptor, FifoWithAWriterCannotBeCopied)
{
    plant::fifo(path);
    const int both_ends = open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_NE(both_ends, -1);
    const std::string text = "RW 128 VMFS \"a-flat.vmdk\"\n";
    ASSERT_EQ(write(both_ends, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    expect_not_copied();
    close(both_ends);
}

TEST_F(HostileDescriptor, LinkToItselfCannotBeCopied)
{
    plant::link(path, "a.vmdk.desc");
    expect_not_copied();
}

TEST_F(HostileDescriptor, LinkToNothingInTheImageCannotBeCopied)
{
    plant::link(path, "nothing");
    expect_not_copied();
}

TEST_F(HostileDescriptor, LinkThatLeavesTheImageAndComesBackCannotBeCopied)
{
    plant::link(path, mounted("vm/b.vmdk.desc"));
    expect_not_copied();
}

TEST_F(HostileDescriptor, LinkThatStaysInTheImageIsFollowed)
{
    plant::link(path, "../vm/b.vmdk.desc");
    expect_prepared();
}

// The first disk's files are in the view already when the second's descriptor is met.
TEST_F(HostileDescriptor, OfTheSecondDiskTakesTheViewAway)
{
    plant::link(at("vm/b.vmdk.desc"), host / "descriptor");
    expect_failed_without_view(EC_FILE_NOT_COPIED);
}

} // namespace
