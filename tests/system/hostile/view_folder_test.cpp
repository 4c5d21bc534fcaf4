// A view folder that is no folder of the image.
#include "hostile_image.h"

#include <filesystem>

namespace fs = std::filesystem;

namespace
{

// With all disks there a view is made, with one missing it is taken away in the end.
class HostileViewFolder : public HostileImage
{
protected:
    void expect_not_made()
    {
        order.disks = {entry("vm/a"), entry("vm/b")};
        expect_not_made_for_these_disks();
        order.disks = {entry("vm/a"), entry("vm/missing")};
        expect_not_made_for_these_disks();
    }
    const std::string path = at("_vmir");

private:
    void expect_not_made_for_these_disks()
    {
        const ExactSnapshot whole(in_root(""), ExactSnapshot::Of::whole);
        expect_failed(EC_FOLDER_NOT_CREATED);
        EXPECT_THAT(whole.changes(), testing::IsEmpty()) << "of the image";
        EXPECT_EQ(errors("makeViewFolder"),
                  std::vector<std::string>{
                      "ERR - Could not create folder for view: " + mounted("_vmir") + "\n"});
    }
};

class HostileViewFolderLink : public HostileViewFolder,
                              public testing::WithParamInterface<plant::WayOut>
{
};

TEST_P(HostileViewFolderLink, ToAFolderOutsideIsNone)
{
    GetParam().plant(path, host / "folder");
    expect_not_made();
}

TEST_P(HostileViewFolderLink, ToAFileOutsideIsNone)
{
    GetParam().plant(path, host / "secret");
    expect_not_made();
}

TEST_P(HostileViewFolderLink, ToNothingOutsideIsNone)
{
    GetParam().plant(path, host / "nothing");
    expect_not_made();
}

INSTANTIATE_TEST_SUITE_P(Ways, HostileViewFolderLink, testing::ValuesIn(plant::ways_out()),
                         testing::PrintToStringParamName());

TEST_F(HostileViewFolder, LinkToAnotherFolderOfTheBackupIsNone)
{
    plant::link(path, "../1600000000/vm");
    expect_not_made();
}

TEST_F(HostileViewFolder, LinkToTheDisksFolderIsNone)
{
    plant::link(path, "vm");
    expect_not_made();
}

TEST_F(HostileViewFolder, LinkToAnEmptyFolderIsNone)
{
    plant::folder(at("empty"));
    plant::link(path, "empty");
    expect_not_made();
}

TEST_F(HostileViewFolder, LinkToNothingInTheImageIsNone)
{
    plant::link(path, "nothing");
    expect_not_made();
}

TEST_F(HostileViewFolder, LinkToItselfIsNone)
{
    plant::link(path, "_vmir");
    expect_not_made();
}

TEST_F(HostileViewFolder, FileIsNone)
{
    plant::file(path, "no folder");
    expect_not_made();
}

TEST_F(HostileViewFolder, FifoIsNone)
{
    plant::fifo(path);
    expect_not_made();
}

TEST_F(HostileViewFolder, SocketIsNone)
{
    plant::socket(path);
    expect_not_made();
}

TEST_F(HostileViewFolder, DeviceIsNone)
{
    if (!plant::can_make_devices())
        GTEST_SKIP() << "no right to make devices";
    plant::device(path);
    expect_not_made();
}

// What another preparation has left, or somebody else, goes with the folder; what it leads to
// stays.
TEST_F(HostileViewFolder, IsTakenAwayWithTheLinksInIt)
{
    plant::folder(in_view("folder"));
    plant::link(in_view("folder/out"), host / "folder");
    plant::link(in_view("out"), host / "folder");
    plant::link(in_view("other"), "../vm");
    plant::hard_link(in_view("data"), at("vm/a.vmdk"));
    plant::fifo(in_view("fifo"));
    order.disks = {entry("vm/a"), entry("vm/missing")};
    expect_failed_without_view(EC_FILE_NOT_FOUND);
}

} // namespace
