// Symbolic links on the way to an image and to its disks.
#include "hostile_image.h"

#include <filesystem>

namespace fs = std::filesystem;

using testing::IsEmpty;

namespace
{

// A folder on the way to the image, as a path below the root.
struct OnTheWay {
    std::string name;
    std::string path;
};
void PrintTo(const OnTheWay& folder, std::ostream* stream)
{
    *stream << folder.name;
}

const std::vector<OnTheWay> folders_on_the_way = {
    {"Backups", "backups"},
    {"Client", "backups/host"},
    {"AllUsers", "backups/host/allusers"},
    {"Schedule", "backups/host/allusers/full"},
    {"Image", "backups/host/allusers/full/1700000000"}};

class ImagePath : public HostileImage
{
protected:
    void expect_refused_image()
    {
        const ExactSnapshot whole(in_root(""), ExactSnapshot::Of::whole);
        const Attempt attempt = prepare();
        EXPECT_NE(attempt.status, EC_OK);
        EXPECT_NE(attempt.status, -1) << "it ended";
        EXPECT_THAT(attempt.out, IsEmpty());
        EXPECT_THAT(whole.changes(), IsEmpty()) << "of the image";
    }
};

class LinkOnTheWay : public ImagePath,
                     public testing::WithParamInterface<std::tuple<OnTheWay, plant::WayOut>>
{
};

// The host's folder is an image itself, so nothing but the way there is wrong.
TEST_P(LinkOnTheWay, OutOfTheMountIsRefused)
{
    const auto& [folder, way] = GetParam();
    way.plant(in_root(folder.path), host / folder.path);
    expect_refused_image();
}

INSTANTIATE_TEST_SUITE_P(Folders, LinkOnTheWay,
                         testing::Combine(testing::ValuesIn(folders_on_the_way),
                                          testing::ValuesIn(plant::ways_out())),
                         [](const auto& test) {
                             return testing::PrintToString(std::get<0>(test.param)) +
                                    testing::PrintToString(std::get<1>(test.param));
                         });

class FolderOnTheWay : public ImagePath, public testing::WithParamInterface<OnTheWay>
{
protected:
    std::string moved() const { return in_root("moved"); }
    void move() const { fs::rename(in_root(GetParam().path), moved()); }

    // The way from the folder's place to the root.
    std::string up() const
    {
        const std::string& path = GetParam().path;
        std::string way;
        for (auto slashes = std::count(path.begin(), path.end(), '/'); slashes > 0; --slashes)
            way += "../";
        return way;
    }
};

TEST_P(FolderOnTheWay, MayBeALinkThatStaysBelowTheMountPoint)
{
    move();
    plant::link(in_root(GetParam().path), up() + "moved");
    expect_prepared();
}

TEST_P(FolderOnTheWay, LeavesTheMountAlsoByANameOfTheMountPoint)
{
    move();
    plant::link(in_root(GetParam().path), "/usr/varnis/var/ixfs/hostile/moved");
    expect_refused_image();
}

TEST_P(FolderOnTheWay, LeavesTheMountAlsoToComeBack)
{
    move();
    plant::link(in_root(GetParam().path), up() + "../hostile/moved");
    expect_refused_image();
}

TEST_P(FolderOnTheWay, MayBeNoLinkToItself)
{
    move();
    plant::link(in_root(GetParam().path), fs::path(GetParam().path).filename());
    expect_refused_image();
}

TEST_P(FolderOnTheWay, MayBeNoFifo)
{
    move();
    plant::fifo(in_root(GetParam().path));
    expect_refused_image();
}

INSTANTIATE_TEST_SUITE_P(Folders, FolderOnTheWay, testing::ValuesIn(folders_on_the_way),
                         testing::PrintToStringParamName());

class DiskFolder : public ImagePath, public testing::WithParamInterface<plant::WayOut>
{
};

TEST_P(DiskFolder, ThatLeadsOutIs14)
{
    GetParam().plant(at("vm"), host / (std::string(image) + "/vm"));
    expect_failed_without_view(EC_FILE_NOT_COPIED);
}

TEST_P(DiskFolder, AboveItsFolderThatLeadsOutIs14)
{
    make_disk("folder/deep/a");
    host.make_folder("disks/deep");
    host.write("disks/deep/a.vmdk.desc", bytes_of(host / "descriptor"));
    host.write("disks/deep/a.vmdk", secret_text);
    GetParam().plant(at("folder"), host / "disks");
    order.disks = {entry("folder/deep/a")};
    expect_failed_without_view(EC_FILE_NOT_COPIED);
}

INSTANTIATE_TEST_SUITE_P(Ways, DiskFolder, testing::ValuesIn(plant::ways_out()),
                         testing::PrintToStringParamName());

TEST_F(ImagePath, DiskFolderThatStaysInTheImageIsFollowed)
{
    fs::rename(at("vm"), in_root("backups/disks"));
    plant::link(at("vm"), "../../../../disks");
    expect_prepared();
}

// More folders than anybody would keep open.
TEST_F(ImagePath, DisksInManyFoldersAreAllFound)
{
    order.disks.clear();
    for (int i = 0; i < 40; ++i) {
        const std::string number = std::to_string(i);
        make_disk("folder" + number + "/disk" + number);
        plant::link(at("door" + number), "folder" + number);
        order.disks.push_back(entry((i % 2 == 0 ? "folder" : "door") + number + "/disk" + number));
    }
    const Attempt attempt = prepare();
    EXPECT_EQ(attempt.status, EC_OK);
    ASSERT_EQ(attempt.out.size(), 40U);
    for (int i = 0; i < 40; ++i) {
        const std::string number = std::to_string(i);
        EXPECT_TRUE(fs::equivalent(in_view("disk" + number + "-flat.vmdk"),
                                   at("folder" + number + "/disk" + number + ".vmdk")));
    }
}

TEST_F(ImagePath, DiskThatIsNamedOutOfTheMountIsNotReached)
{
    const std::string up = "../../../../../../../../../../../../../../../../..";
    order.disks = {entry(up + host.path() + "/" + image + "/vm/a")};
    const Attempt attempt = prepare();
    EXPECT_NE(attempt.status, EC_OK);
    EXPECT_NE(attempt.status, -1) << "it ended";
}

} // namespace
