// Lists of disks that would harm each other in the view.
#include "hostile_image.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace
{

class RefusedDisks : public HostileImage
{
};

TEST_F(RefusedDisks, OneInTheViewFolder)
{
    make_disk("_vmir/a");
    order.disks = {entry("vm/b"), entry("_vmir/a")};
    expect_refused("_vmir/a");
    order.disks = {entry("_vmir/a")};
    expect_refused("_vmir/a");
}

TEST_F(RefusedDisks, OneBelowTheViewFolder)
{
    make_disk("_vmir/folder/a");
    order.disks = {entry("_vmir/folder/a")};
    expect_refused("_vmir/folder/a");
}

TEST_F(RefusedDisks, OneInTheViewFolderByARoundaboutName)
{
    make_disk("_vmir/a");
    for (const char* const disk : {"./_vmir/a", "vm/../_vmir/a", "_vmir//a", "vm/.././_vmir/./a"}) {
        order.disks = {entry(disk)};
        expect_refused(disk);
    }
}

TEST_F(RefusedDisks, OneInTheViewFolderByWayOfALink)
{
    make_disk("_vmir/a");
    plant::link(at("door"), "_vmir");
    order.disks = {entry("door/a")};
    expect_refused("door/a");
    plant::link(at("long-way"), "../1700000000/vm/../door");
    order.disks = {entry("vm/b"), entry("long-way/a")};
    expect_refused("long-way/a");
}

TEST_F(RefusedDisks, OneBelowTheViewFolderByWayOfALink)
{
    make_disk("_vmir/folder/deep/a");
    plant::link(at("door"), "./_vmir/folder");
    order.disks = {entry("door/deep/a")};
    expect_refused("door/deep/a");
    plant::link(at("deep-door"), "door/deep");
    order.disks = {entry("deep-door/a")};
    expect_refused("deep-door/a");
}

TEST_F(RefusedDisks, OneBesideTheViewFolderByWayOfALinkIsNone)
{
    plant::link(at("door"), "_vmir/../vm");
    plant::folder(at("_vmir"));
    order.disks = {entry("door/a"), entry("door/b")};
    expect_prepared();
}

TEST_F(RefusedDisks, TwoOfWhichOnesDescriptorGetsTheOthersName)
{
    make_disk("vm/a-flat");
    order.disks = {entry("vm/a"), entry("vm/a-flat")};
    expect_refused("vm/a");
    order.disks = {entry("vm/a-flat"), entry("vm/b"), entry("vm/a")};
    expect_refused("vm/a");
}

TEST_F(RefusedDisks, PreparedAgainInAnotherOrder)
{
    make_disk("vm1/a");
    order.disks = {entry("vm/a"), entry("vm1/a")};
    given_view();
    order.disks = {entry("vm1/a"), entry("vm/a")};
    expect_refused("vm1/a");
}

TEST_F(RefusedDisks, PreparedAgainWithOneLess)
{
    make_disk("vm1/a");
    order.disks = {entry("vm/a"), entry("vm1/a")};
    given_view();
    order.disks = {entry("vm1/a")};
    expect_refused("vm1/a");
}

TEST_F(RefusedDisks, PreparedAgainWithOneBeforeThem)
{
    make_disk("vm1/a");
    given_view();
    order.disks = {entry("vm1/a"), entry("vm/a")};
    expect_refused("vm1/a");
}

TEST_F(RefusedDisks, PreparedAgainWithOneBehindThemIsNone)
{
    make_disk("vm1/a");
    given_view();
    order.disks.push_back(entry("vm1/a"));
    EXPECT_EQ(prepare().status, EC_OK);
}

TEST_F(RefusedDisks, OneWhoseDescriptorGetsTheNameOfALinkInTheView)
{
    make_disk("vm/a-flat");
    given_view();
    order.disks = {entry("vm/a-flat")};
    expect_refused("vm/a-flat");
    order.disks = {entry("vm/b"), entry("vm/a-flat")};
    expect_refused("vm/a-flat");
}

} // namespace
