#include "copy_or_link_test.h"
#include "interpose.h"
#include "real_mount.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

namespace
{

namespace fs = std::filesystem;

// What somebody else has put into the image.
class CopyOrLinkAttacks : public CopyOrLinkTest
{
protected:
    CopyOrLinkAttacks() { elsewhere.write("host", "the host's own"); }

    // The disk's descriptor is not copied, for this error.
    void expect_no_descriptor(int error)
    {
        EXPECT_EQ(prepare(), 14);
        EXPECT_EQ(disk_lines(), (Lines{exists_line(desc_path),
                                       make_copy_line,
                                       {IXFS_LOG_ERR, "_ixfs_copy_desc()",
                                        "ERR - can't open old " + desc_path + ", err " +
                                            std::to_string(error) + "\n"},
                                       copy_failed_line}));
    }

    // The disk's data is not linked, for this error.
    void expect_no_link(int error)
    {
        EXPECT_EQ(prepare(), 11);
        EXPECT_EQ(disk_lines(),
                  copied_lines("a", "a") + (Lines{exists_line(data_path), make_link_line,
                                                  not_linked_line(error), link_failed_line}));
    }

    const TempDir elsewhere;
    int puts = 0;
};

TEST_F(CopyOrLinkAttacks, DescriptorThatLeadsOutOfTheImageIsNotOpened)
{
    fs::remove(desc_path);
    fs::create_symlink(elsewhere / "host", desc_path);
    expect_no_descriptor(EXDEV);
}

TEST_F(CopyOrLinkAttacks, DescriptorThatLeadsOutByTheWayUpIsNotOpened)
{
    fs::remove(desc_path);
    std::string above;
    for (int level = 0; level < 20; ++level)
        above += "../";
    fs::create_symlink(above + (elsewhere / "host").substr(1), desc_path);
    expect_no_descriptor(EXDEV);
}

TEST_F(CopyOrLinkAttacks, DescriptorThatLeadsToAFolderAboveIsNotOpened)
{
    fs::remove(desc_path);
    fs::create_symlink("..", desc_path);
    expect_no_descriptor(EISDIR);
}

TEST_F(CopyOrLinkAttacks, DescriptorThatLeadsNowhereIsNotOpened)
{
    fs::remove(desc_path);
    fs::create_symlink("nowhere", desc_path);
    expect_no_descriptor(ENOENT);
}

TEST_F(CopyOrLinkAttacks, DescriptorThatIsAFifoIsNotOpened)
{
    fs::remove(desc_path);
    ASSERT_EQ(mkfifo(desc_path.c_str(), 0600), 0);
    expect_no_descriptor(EINVAL);
}

TEST_F(CopyOrLinkAttacks, DescriptorThatIsAFolderIsNotOpened)
{
    fs::remove(desc_path);
    fs::create_directory(desc_path);
    expect_no_descriptor(EISDIR);
}

// There a file is not looked at before it is opened.
TEST_F(CopyOrLinkAttacks, FifoIsNoDescriptorWhereDevicesAreForbiddenEither)
{
    const RealMount without_devices = RealMount::without_devices(mount_point.path());
    fs::remove(desc_path);
    ASSERT_EQ(mkfifo(desc_path.c_str(), 0600), 0);
    expect_no_descriptor(EINVAL);
}

TEST_F(CopyOrLinkAttacks, DescriptorWithALeaseIsWaitedForWhereDevicesAreForbiddenToo)
{
    const RealMount without_devices = RealMount::without_devices(mount_point.path());
    auto open = interpose::on_open([this](const char* path, int flags) {
        if (path != desc_path || (flags & O_NONBLOCK) == 0)
            return std::optional<int>();
        ++puts;
        errno = EWOULDBLOCK;
        return std::optional<int>(-1);
    });
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(puts, 1);
}

// As where files are fetched from tape.
TEST_F(CopyOrLinkAttacks, FilesThatNeedAWaitAreWaitedForWhereDevicesAreForbiddenToo)
{
    const RealMount without_devices = RealMount::without_devices(mount_point.path());
    auto read = interpose::on_read([this](int file, void*, std::size_t) {
        if ((fcntl(file, F_GETFL) & O_NONBLOCK) == 0)
            return std::optional<ssize_t>();
        ++puts;
        errno = EAGAIN;
        return std::optional<ssize_t>(-1);
    });
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(puts, 3) << "the first read of the configuration, the second, the descriptor's";
    EXPECT_EQ(config, "<vm/>");
    EXPECT_EQ(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
}

TEST_F(CopyOrLinkAttacks, FolderIsNoDescriptorWhereDevicesAreForbiddenEither)
{
    const RealMount without_devices = RealMount::without_devices(mount_point.path());
    fs::remove(desc_path);
    fs::create_directory(desc_path);
    expect_no_descriptor(EISDIR);
}

TEST_F(CopyOrLinkAttacks, LinkThatLeadsOutIsNoDescriptorWhereDevicesAreForbiddenEither)
{
    const RealMount without_devices = RealMount::without_devices(mount_point.path());
    fs::remove(desc_path);
    fs::create_symlink(elsewhere / "host", desc_path);
    expect_no_descriptor(EXDEV);
}

TEST_F(CopyOrLinkAttacks, DescriptorThatALinkLeadsToWithinTheImageIsCopied)
{
    fs::rename(desc_path, mount_point / "backups/real");
    fs::create_symlink("../../../../../real", desc_path);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
}

TEST_F(CopyOrLinkAttacks, DiskFolderThatALinkLeadsToWithinTheImageIsUsed)
{
    fs::rename(in_image("vm"), mount_point / "backups/real");
    fs::create_directory_symlink("../../../../real", in_image("vm"));
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_TRUE(fs::equivalent(view_data_path, data_path));
}

TEST_F(CopyOrLinkAttacks, DiskFolderThatLeadsOutOfTheImageIsNotEntered)
{
    fs::rename(in_image("vm"), elsewhere / "vm");
    fs::create_directory_symlink(elsewhere / "vm", in_image("vm"));
    expect_no_descriptor(EXDEV);
}

TEST_F(CopyOrLinkAttacks, DataThatIsAFolderIsNotLinked)
{
    fs::remove(data_path);
    fs::create_directory(data_path);
    expect_no_link(EISDIR);
}

TEST_F(CopyOrLinkAttacks, DataThatIsASymbolicLinkIsNotLinked)
{
    fs::rename(data_path, in_image("vm/real"));
    fs::create_symlink("real", data_path);
    expect_no_link(ELOOP);
    EXPECT_TRUE(fs::is_symlink(data_path));
}

TEST_F(CopyOrLinkAttacks, DataThatIsAFifoIsNotLinked)
{
    fs::remove(data_path);
    ASSERT_EQ(mkfifo(data_path.c_str(), 0600), 0);
    expect_no_link(EINVAL);
}

TEST_F(CopyOrLinkAttacks, OldDescriptorThatLeadsOutOfTheImageIsTakenAway)
{
    make_view();
    fs::create_symlink(elsewhere / "host", view_desc_path);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(elsewhere.read("host"), "the host's own");
    EXPECT_FALSE(fs::is_symlink(view_desc_path));
    EXPECT_EQ(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
}

TEST_F(CopyOrLinkAttacks, OldDescriptorThatLeadsNowhereMakesNoFileThere)
{
    make_view();
    fs::create_symlink(elsewhere / "new", view_desc_path);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_FALSE(elsewhere.exists("new"));
}

TEST_F(CopyOrLinkAttacks, OldDescriptorThatIsAFifoIsTakenAway)
{
    make_view();
    ASSERT_EQ(mkfifo(view_desc_path.c_str(), 0600), 0);
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
}

// Found missing, and then there: whatever it is, it is not written into.
TEST_F(CopyOrLinkAttacks, LinkPutInTheNewDescriptorsPlaceIsTakenAway)
{
    auto open = interpose::on_open([this](const char* path, int flags) {
        if (path == view_desc_path && (flags & O_CREAT) != 0 && !fs::is_symlink(path) &&
            puts++ == 0)
            fs::create_symlink(elsewhere / "host", view_desc_path);
        return std::optional<int>();
    });
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(elsewhere.read("host"), "the host's own");
    EXPECT_EQ(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
}

TEST_F(CopyOrLinkAttacks, FilePutAgainAndAgainInTheNewDescriptorsPlaceIsGivenUpOn)
{
    auto open = interpose::on_open([this](const char* path, int flags) {
        if (path == view_desc_path && (flags & O_CREAT) != 0) {
            write_in_view("a.vmdk", "a rival's");
            ++puts;
        }
        return std::optional<int>();
    });
    EXPECT_EQ(prepare(), 14);
    EXPECT_EQ(puts, 100);
}

// By more than can ever be read. What it grows by is not even there.
TEST_F(CopyOrLinkAttacks, DescriptorThatGrowsForEverIsGivenUpOn)
{
    std::uintmax_t size = 1 << 20;
    fs::resize_file(desc_path, size);
    auto read = interpose::on_read([&](int, void*, std::size_t room) {
        fs::resize_file(desc_path, size += room);
        return std::optional<ssize_t>();
    });
    EXPECT_EQ(prepare(), 14);
    EXPECT_LT(size, 70U << 20);
    const Line endless{IXFS_LOG_ERR, "_ixfs_copy_desc()", "ERR - error reading old file - 27\n"};
    const Lines lines = disk_lines();
    EXPECT_NE(std::find(lines.begin(), lines.end(), endless), lines.end());
}

TEST_F(CopyOrLinkAttacks, DescriptorThatNobodyCouldReadIsNotOpened)
{
    fs::resize_file(desc_path, std::uintmax_t{1} << 40);
    expect_no_descriptor(EFBIG);
}

// More than are kept open at once.
TEST_F(CopyOrLinkAttacks, DisksOfManyFoldersArePrepared)
{
    for (int i = 0; i < 40; ++i)
        add_disk("d" + std::to_string(i), "folder" + std::to_string(i % 20));
    EXPECT_EQ(prepare(), EC_OK);
    for (int i = 0; i < 40; ++i)
        EXPECT_TRUE(fs::exists(in_view("d" + std::to_string(i) + "-flat.vmdk")));
    EXPECT_EQ(prepare(), EC_OK);
}

// Then a file's name has to do.
TEST_F(CopyOrLinkAttacks, DescriptorsAreReadAlsoWithoutProc)
{
    add_disk("b");
    fs::rename(in_image("vm/b.vmdk.desc"), in_image("real"));
    fs::create_symlink("../real", in_image("vm/b.vmdk.desc"));
    auto no_proc = interpose::on_open([](const char*, int flags) {
        constexpr int read_by_descriptor = O_RDONLY | O_NOCTTY | O_CLOEXEC;
        if (flags != read_by_descriptor)
            return std::optional<int>();
        errno = ENOENT;
        return std::optional<int>(-1);
    });
    EXPECT_EQ(prepare(), 12) << "a server may say so, too";
    auto access = interpose::on_access([](const char* path, int) {
        if (std::strstr(path, "/fd") == nullptr)
            return std::optional<int>();
        errno = ENOENT;
        return std::optional<int>(-1);
    });
    EXPECT_EQ(prepare(), EC_OK);
    EXPECT_EQ(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
    EXPECT_EQ(mount_point.read(view_path("b.vmdk")), descriptor("b-flat.vmdk"));
    EXPECT_EQ(config, "<vm/>");
}

} // namespace
