// What lies in the view folder already, under the names that a preparation gives.
#include "hostile_image.h"

#include <filesystem>

#include <sys/stat.h>

namespace fs = std::filesystem;

namespace
{

class HostileViewEntries : public HostileImage
{
protected:
    HostileViewEntries() { plant::folder(at("_vmir")); }

    const std::string descriptor = in_view("a.vmdk");
    const std::string data = in_view("a-flat.vmdk");
};

// ---- A descriptor's name ------------------------------------------------------------------------

class HostileViewLink : public HostileViewEntries, public testing::WithParamInterface<plant::WayOut>
{
};

TEST_P(HostileViewLink, ToAHostFileIsReplacedByANewFile)
{
    GetParam().plant(descriptor, host / "secret");
    expect_prepared();
}

TEST_P(HostileViewLink, ToANameThatDoesNotExistIsReplacedByANewFile)
{
    GetParam().plant(descriptor, host / "nothing");
    expect_prepared();
}

TEST_P(HostileViewLink, ToAHostFolderIsReplacedByANewFile)
{
    GetParam().plant(descriptor, host / "folder");
    expect_prepared();
}

TEST_P(HostileViewLink, UnderTheDatasNameIsRefused)
{
    GetParam().plant(data, host / "secret");
    expect_refused("vm/a");
    GetParam().plant(data, host / "nothing");
    expect_refused("vm/a");
    GetParam().plant(data, host / "folder");
    expect_refused("vm/a");
}

INSTANTIATE_TEST_SUITE_P(Ways, HostileViewLink, testing::ValuesIn(plant::ways_out()),
                         testing::PrintToStringParamName());

TEST_F(HostileViewEntries, LinkToAnotherFileOfTheBackupIsReplacedByANewFile)
{
    plant::link(descriptor, "../vm/a.vmdk");
    expect_prepared();
}

TEST_F(HostileViewEntries, LinkToTheOldDescriptorIsReplacedByANewFile)
{
    plant::link(descriptor, "../vm/a.vmdk.desc");
    expect_prepared();
}

TEST_F(HostileViewEntries, LinkToTheConfigurationIsReplacedByANewFile)
{
    plant::link(descriptor, "../^^.^VIRTUAL_FILE_FSMAP");
    expect_prepared();
}

TEST_F(HostileViewEntries, LinkToNothingInTheImageIsReplacedByANewFile)
{
    plant::link(descriptor, "../nothing");
    expect_prepared();
    EXPECT_FALSE(fs::exists(at("nothing")));
}

TEST_F(HostileViewEntries, HardLinkToAnotherFileOfTheBackupIsReplacedByANewFile)
{
    for (const char* const victim : {"vm/a.vmdk", "vm/b.vmdk", "vm/a.vmdk.desc", configuration}) {
        plant::hard_link(descriptor, at(victim));
        expect_prepared();
    }
}

TEST_F(HostileViewEntries, FileIsReplacedByANewFile)
{
    plant::file(descriptor, "of an earlier time");
    struct stat before {
    };
    ASSERT_EQ(stat(descriptor.c_str(), &before), 0);
    plant::hard_link(at("kept"), descriptor); // so that its inode is not given out again
    expect_prepared();
    struct stat after {
    };
    ASSERT_EQ(stat(descriptor.c_str(), &after), 0);
    EXPECT_NE(before.st_ino, after.st_ino);
}

TEST_F(HostileViewEntries, FifoIsReplacedByANewFile)
{
    plant::fifo(descriptor);
    expect_prepared();
}

TEST_F(HostileViewEntries, SocketIsReplacedByANewFile)
{
    plant::socket(descriptor);
    expect_prepared();
}

TEST_F(HostileViewEntries, DeviceIsReplacedByANewFile)
{
    if (!plant::can_make_devices())
        GTEST_SKIP() << "no right to make devices";
    plant::device(descriptor);
    expect_prepared();
}

TEST_F(HostileViewEntries, FolderUnderADescriptorsNameIs14)
{
    plant::file(descriptor + "/file", "content");
    expect_failed_without_view(EC_FILE_NOT_COPIED);
}

// ---- A data link's name -------------------------------------------------------------------------

TEST_F(HostileViewEntries, LinkToItsOwnDataIsRefused)
{
    plant::link(data, "../vm/a.vmdk");
    expect_refused("vm/a");
}

TEST_F(HostileViewEntries, LinkToAnotherDisksDataIsRefused)
{
    plant::link(data, "../vm/b.vmdk");
    expect_refused("vm/a");
}

TEST_F(HostileViewEntries, LinkToNothingInTheImageIsRefused)
{
    plant::link(data, "nothing");
    expect_refused("vm/a");
}

class StrangeViewData : public HostileViewEntries, public testing::WithParamInterface<plant::Thing>
{
};

TEST_P(StrangeViewData, IsRefused)
{
    GetParam().plant(data);
    expect_refused("vm/a");
}

INSTANTIATE_TEST_SUITE_P(Things, StrangeViewData, testing::ValuesIn(plant::strange_things()),
                         testing::PrintToStringParamName());

TEST_F(HostileViewEntries, AnotherFileIsRefused)
{
    plant::file(data, "another size");
    expect_refused("vm/a");
}

TEST_F(HostileViewEntries, AnotherFileOfTheSameSizeIsRefused)
{
    plant::file(data, std::string(fs::file_size(at("vm/a.vmdk")), 'x'));
    fs::last_write_time(data, fs::file_time_type::clock::now() - std::chrono::hours(1));
    expect_refused("vm/a");
}

TEST_F(HostileViewEntries, AnotherFileOfTheSameTimeIsRefused)
{
    plant::file(data, "another size");
    fs::last_write_time(data, fs::last_write_time(at("vm/a.vmdk")));
    expect_refused("vm/a");
}

// File systems may number hard links apart.
TEST_F(HostileViewEntries, FileThatMayBeTheSameIsUsedAgain)
{
    plant::file(data, bytes_of(at("vm/a.vmdk")));
    fs::last_write_time(data, fs::last_write_time(at("vm/a.vmdk")));
    EXPECT_EQ(prepare().status, EC_OK);
    EXPECT_EQ(log.with_message(
                     "INF - File already exists, reusing: " + mounted("_vmir/a-flat.vmdk") + "\n")
                  .size(),
              1U);
}

// Even where size and times are the same.
TEST_F(HostileViewEntries, AnotherDisksDataIsRefused)
{
    plant::hard_link(data, at("vm/b.vmdk"));
    expect_refused("vm/a");
    fs::last_write_time(at("vm/a.vmdk"), fs::last_write_time(at("vm/b.vmdk")));
    ASSERT_EQ(fs::file_size(at("vm/a.vmdk")), fs::file_size(at("vm/b.vmdk")));
    expect_refused("vm/a");
}

TEST_F(HostileViewEntries, TheSecondDisksDataIsLookedAtBeforeTheFirstIsBegun)
{
    plant::link(in_view("b-flat.vmdk"), host / "secret");
    expect_refused("vm/b");
}

TEST_F(HostileViewEntries, ItsOwnDataIsUsedAgain)
{
    plant::hard_link(data, at("vm/a.vmdk"));
    expect_prepared();
    EXPECT_EQ(log.with_message(
                     "INF - File already exists, reusing: " + mounted("_vmir/a-flat.vmdk") + "\n")
                  .size(),
              1U);
}

} // namespace
