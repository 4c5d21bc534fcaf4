// A disk's data that is no regular file itself.
#include "hostile_image.h"

namespace
{

class HostileData : public HostileImage
{
protected:
    void expect_not_linked()
    {
        expect_failed_without_view(EC_SYSTEM_ERROR);
        EXPECT_EQ(errors("copyOrLinkPath"),
                  std::vector<std::string>{"ERR - Could not create link for " +
                                           mounted("_vmir/a-flat.vmdk") + ", error 11\n"});
    }
    const std::string path = at("vm/a.vmdk");
};

class HostileDataLink : public HostileData, public testing::WithParamInterface<plant::WayOut>
{
};

TEST_P(HostileDataLink, ToASecretIsNotLinked)
{
    GetParam().plant(path, host / "secret");
    expect_not_linked();
}

TEST_P(HostileDataLink, ToNothingOutsideIsNotLinked)
{
    GetParam().plant(path, host / "nothing");
    expect_not_linked();
}

TEST_P(HostileDataLink, ToAFolderOutsideIsNotLinked)
{
    GetParam().plant(path, host / "folder");
    expect_not_linked();
}

INSTANTIATE_TEST_SUITE_P(Ways, HostileDataLink, testing::ValuesIn(plant::ways_out()),
                         testing::PrintToStringParamName());

class StrangeData : public HostileData, public testing::WithParamInterface<plant::Thing>
{
};

TEST_P(StrangeData, IsNotLinked)
{
    GetParam().plant(path);
    expect_not_linked();
}

TEST_P(StrangeData, IsNotLinkedThroughALinkEither)
{
    plant::link(path, "strange");
    GetParam().plant(at("vm/strange"));
    expect_not_linked();
}

INSTANTIATE_TEST_SUITE_P(Things, StrangeData, testing::ValuesIn(plant::strange_things()),
                         testing::PrintToStringParamName());

TEST_F(HostileData, LinkToItselfIsNotLinked)
{
    plant::link(path, "a.vmdk");
    expect_not_linked();
}

TEST_F(HostileData, LinkToNothingInTheImageIsNotLinked)
{
    plant::link(path, "nothing");
    expect_not_linked();
}

TEST_F(HostileData, LinkToAnotherDisksDataIsNotLinked)
{
    plant::link(path, "b.vmdk");
    expect_not_linked();
}

TEST_F(HostileData, OfTheSecondDiskTakesTheViewAway)
{
    plant::link(at("vm/b.vmdk"), "a.vmdk");
    expect_failed_without_view(EC_SYSTEM_ERROR);
}

} // namespace
