// Devices in an image: to open one can be to use it, so none is.
#include "hostile_image.h"

#include "touch_watch.h"

namespace
{

struct Place {
    std::string name;
    std::string path;
};
void PrintTo(const Place& place, std::ostream* stream)
{
    *stream << place.name;
}

class DeviceInTheImage : public HostileImage, public testing::WithParamInterface<Place>
{
};

TEST_P(DeviceInTheImage, IsNeverOpened)
{
    if (!plant::can_make_devices())
        GTEST_SKIP() << "no right to make devices";
    if (GetParam().path.rfind("_vmir/", 0) == 0)
        plant::folder(at("_vmir"));
    plant::device(at(GetParam().path));
    const TouchWatch watch(at(GetParam().path));
    EXPECT_NE(prepare().status, -1) << "it ended";
    EXPECT_THAT(watch.opened(), testing::IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Places, DeviceInTheImage,
                         testing::Values(Place{"Configuration", "^^.^VIRTUAL_FILE_FSMAP"},
                                         Place{"Descriptor", "vm/a.vmdk.desc"},
                                         Place{"Data", "vm/a.vmdk"}, Place{"DisksFolder", "vm"},
                                         Place{"ViewFolder", "_vmir"},
                                         Place{"DescriptorInTheView", "_vmir/a.vmdk"},
                                         Place{"DataLinkInTheView", "_vmir/a-flat.vmdk"},
                                         Place{"LeftoverInTheView", "_vmir/leftover"}),
                         testing::PrintToStringParamName());

} // namespace
