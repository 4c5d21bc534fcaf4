#include "copy_or_link_test.h"
#include "interpose.h"

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

namespace
{

namespace fs = std::filesystem;

using CopyOrLink = CopyOrLinkTest;

TEST_F(CopyOrLink, DescriptorIsCopiedAndDataLinked)
{
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(disk_lines(), copied_lines("a", "a") + linked_lines("a", "a"));
    EXPECT_EQ(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
    EXPECT_TRUE(fs::equivalent(view_data_path, data_path));
}

TEST_F(CopyOrLink, SourceIsLookedForBelowTheMountPoint)
{
    std::vector<std::string> checked;
    auto access = interpose::on_access([&](const char* path, int) {
        checked.push_back(path);
        return std::optional<int>();
    });
    EXPECT_EQ(prepare(), EC_OK);
    const std::string folder = mount_point.path() + "/backups/host/allusers/full/1700000000";
    EXPECT_EQ(checked,
              (std::vector<std::string>{folder + "/^^.^VIRTUAL_FILE_FSMAP", folder + "/_vmir",
                                        folder + "/vm/a.vmdk.desc", folder + "/_vmir/a.vmdk",
                                        folder + "/vm/a.vmdk", folder + "/_vmir/a-flat.vmdk"}));
}

TEST_F(CopyOrLink, DiskInTheMountPointItselfIsPrepared)
{
    mount_point.write("backups-b.vmdk.desc", descriptor("b-flat.vmdk"));
    mount_point.write("backups-b.vmdk", "data of b");
    entries = {"[ds]/backups-b.vmdk.desc"};
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(mount_point.read(view_path("backups-b.vmdk")), descriptor("backups-b-flat.vmdk"));
    EXPECT_TRUE(fs::equivalent(in_view("backups-b-flat.vmdk"), mount_point / "backups-b.vmdk"));
}

TEST_F(CopyOrLink, DescriptorInTheMountPointItselfMayBeALink)
{
    fs::create_symlink(original_path("a.vmdk.desc"), mount_point / "backups-b.vmdk.desc");
    mount_point.write("backups-b.vmdk", "data of b");
    entries = {"[ds]/backups-b.vmdk.desc"};
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(mount_point.read(view_path("backups-b.vmdk")), descriptor("backups-b-flat.vmdk"));
}

TEST_F(CopyOrLink, OldCopyThatIsGoneWhenItIsTakenAwayIsNoFailure)
{
    make_view();
    write_in_view("a.vmdk", "an old copy");
    auto unlink = interpose::on_unlink([](const char* path) {
        fs::remove(path);
        return std::optional<int>(); // so that this one finds nothing
    });
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
}

TEST_F(CopyOrLink, OldCopyThatCannotBeTakenAwayIs14)
{
    make_view();
    write_in_view("a.vmdk", "an old copy");
    auto unlink = interpose::on_unlink([this](const char* path) {
        if (path != view_desc_path)
            return std::optional<int>();
        errno = EACCES;
        return std::optional<int>(-1);
    });
    EXPECT_EQ(prepare(), 14);
    EXPECT_EQ(disk_lines(), (Lines{exists_line(desc_path),
                                   exists_line(view_desc_path),
                                   make_copy_line,
                                   {IXFS_LOG_ERR, "_ixfs_copy_desc()",
                                    "ERR - can't open new " + view_desc_path + ", err 13\n"},
                                   copy_failed_line}));
}

TEST_F(CopyOrLink, MissingDescriptorIs142)
{
    fs::remove(desc_path);
    EXPECT_EQ(prepare(), 142);
    EXPECT_EQ(disk_lines(), Lines{no_source_line(desc_path)});
}

TEST_F(CopyOrLink, MissingDataIs142)
{
    fs::remove(data_path);
    EXPECT_EQ(prepare(), 142);
    EXPECT_EQ(disk_lines(), copied_lines("a", "a") + Lines{no_source_line(data_path)});
}

TEST_F(CopyOrLink, MissingSourceIs142AlsoWhereTheDestinationIsPresent)
{
    make_view();
    write_in_view("a.vmdk", "an old copy");
    fs::remove(desc_path);
    EXPECT_EQ(prepare(), 142);
    EXPECT_EQ(disk_lines(), Lines{no_source_line(desc_path)});
}

TEST_F(CopyOrLink, UnreadableSourceIs142)
{
    auto access = interpose::on_access([this](const char* path, int) {
        if (path != data_path)
            return std::optional<int>();
        errno = EACCES;
        return std::optional<int>(-1);
    });
    EXPECT_EQ(prepare(), 142);
    const Line not_readable{IXFS_LOG_ERR, "_ixfs_file_exists()",
                            "ERR - ACE_OS::access(" + data_path + ") failed, error = 13\n"};
    EXPECT_EQ(disk_lines(),
              copied_lines("a", "a") + (Lines{not_readable, no_source_line(data_path)}));
}

TEST_F(CopyOrLink, ExistingLinkIsReusedAndNoneMade)
{
    make_view();
    fs::create_hard_link(data_path, view_data_path);
    auto link = interpose::on_link.watch();
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(link.calls(), 0);
    EXPECT_EQ(disk_lines(),
              copied_lines("a", "a") +
                  (Lines{exists_line(data_path), exists_line(view_data_path), reused_line}));
}

TEST_F(CopyOrLink, ExistingDescriptorIsCopiedAgain)
{
    make_view();
    write_in_view("a.vmdk", "an old copy");
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(disk_lines(), copied_lines("a", "a", true) + linked_lines("a", "a"));
    EXPECT_EQ(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
}

TEST_F(CopyOrLink, FailedLinkIs11WhateverTheError)
{
    for (const int error : {EMLINK, EXDEV, EROFS}) {
        auto link = interpose::on_link.fails(error);
        EXPECT_EQ(prepare(), 11);
        EXPECT_EQ(disk_lines(),
                  copied_lines("a", "a") + (Lines{exists_line(data_path), make_link_line,
                                                  not_linked_line(error), link_failed_line}));
    }
}

TEST_F(CopyOrLink, LinkThatIsNotPermittedReadsAsSuccess)
{
    auto link = interpose::on_link.fails(EPERM);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(disk_lines(),
              copied_lines("a", "a") + (Lines{exists_line(data_path), make_link_line,
                                              not_linked_line(EPERM), link_made_line}));
    EXPECT_FALSE(fs::exists(view_data_path));
    EXPECT_EQ(out.size(), 1);
}

TEST_F(CopyOrLink, LinkThatARivalHasJustMadeIsReused)
{
    auto link = interpose::on_link([](const char* existing, const char* path) {
        fs::create_hard_link(existing, path);
        return std::optional<int>(); // so that this one finds it
    });
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(disk_lines(), copied_lines("a", "a") + (Lines{exists_line(data_path), make_link_line,
                                                            not_linked_line(EEXIST), reused_line}));
    EXPECT_TRUE(fs::equivalent(view_data_path, data_path));
}

TEST_F(CopyOrLink, OtherFileThatARivalHasJustMadeIs11)
{
    auto link = interpose::on_link([this](const char*, const char*) {
        write_in_view("a-flat.vmdk", "not this disk");
        return std::optional<int>();
    });
    EXPECT_EQ(prepare(), 11);
    EXPECT_EQ(disk_lines(),
              copied_lines("a", "a") + (Lines{exists_line(data_path), make_link_line,
                                              not_linked_line(EEXIST), link_failed_line}));
}

TEST_F(CopyOrLink, FailedCopyIs14)
{
    mount_point.write(original_path("a.vmdk.desc"), "version=1\nRW 2048 FLAT \"a\" 0\n");
    EXPECT_EQ(prepare(), 14);
    constexpr char copy_tag[] = "_ixfs_copy_desc()";
    EXPECT_EQ(disk_lines(),
              (Lines{exists_line(desc_path),
                     make_copy_line,
                     {IXFS_LOG_ERR, copy_tag, "ERR - didn't find VMFS keyword\n"},
                     {IXFS_LOG_ERR, copy_tag, "ERR - failed to find and alter RW tag?!?\n"},
                     copy_failed_line}));
}

TEST_F(CopyOrLink, CopyThatCannotBeOpenedIs14)
{
    make_view();
    mount_point.make_folder(view_path("a.vmdk"));
    EXPECT_EQ(prepare(), 14);
    EXPECT_EQ(disk_lines(), (Lines{exists_line(desc_path),
                                   exists_line(view_desc_path),
                                   make_copy_line,
                                   {IXFS_LOG_ERR, "_ixfs_copy_desc()",
                                    "ERR - can't open new " + view_desc_path + ", err 21\n"},
                                   copy_failed_line}));
}

TEST_F(CopyOrLink, DescriptorThatIsALinkToDataIsReplaced)
{
    make_view();
    fs::create_hard_link(data_path, view_desc_path);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(mount_point.read(original_path("a.vmdk")), "data of vm/a");
    EXPECT_EQ(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
}

} // namespace
