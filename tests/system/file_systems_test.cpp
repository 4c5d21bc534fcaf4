// Preparing an image twice, on file systems as media servers have them. File systems differ in how
// they number files, and the second time a data link is known by its number.
#include "file_system.h"
#include "loopback_test.h"

#include <filesystem>
#include <optional>

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

const std::vector<std::string> links = {"disk-flat.vmdk", "disk(1)-flat.vmdk", "data-flat.vmdk"};

class FileSystems : public testing::TestWithParam<FileSystemKind>
{
protected:
    void TearDown() override
    {
        EXPECT_EQ(server_ ? server_->mounts() : 0, 0);
        server_.reset();
    }

    // Mounts a file system on the server's folder, or skips the test.
    void mount()
    {
        fs::create_directories(folder_);
        try {
            file_system_ = GetParam().make(folder_);
        } catch (const NoFileSystem& reason) {
            GTEST_SKIP() << reason.what();
        }
    }
    void make_image() { server_.emplace("server"); }

    void expect_prepared_twice();

private:
    std::vector<std::string> prepare();
    std::string view() const { return server_->root + "/" + server_->image + "/_vmir"; }
    void expect_links_reused() const;

    NoLocksLeft no_locks_left_;
    Loopback loopback_;
    LogRecorder log_;
    const std::string folder_ = "/usr/varnis/var/ixfs-loopback/server";
    std::optional<SampleServer> server_;
    std::unique_ptr<FileSystem> file_system_; // gone before the server's folder
};

std::vector<std::string> FileSystems::prepare()
{
    const NoDescriptorsLeft no_descriptors_left;
    const MountCreds creds{"server",          4010, 0, 30, nullptr, "mount-cred", "unmount-cred",
                           server_->backup_id};
    LogInfo log_info{nullptr, LogRecorder::callback};
    std::string config;
    std::vector<std::string> disks = server_->disks;
    std::vector<std::string> out;
    log_.take();
    EXPECT_EQ(ixfs_prepare_vmir(creds, disks, &log_info, config, out, false), EC_OK);
    return out;
}

void FileSystems::expect_links_reused() const
{
    Lines reused;
    for (const std::string& link : links)
        reused.push_back({IXFS_LOG_INF, "copyOrLinkPath",
                          "INF - File already exists, reusing: " + server_->mount_point + "/" +
                              server_->image + "/_vmir/" + link + "\n"});
    Lines found;
    for (const Line& line : log_.with_tag("copyOrLinkPath")) {
        if (line.message.find(" reusing: ") != std::string::npos)
            found.push_back(line);
    }
    EXPECT_EQ(found, reused);
    EXPECT_THAT(log_.with_message("INF - makeLink? 1\n"), IsEmpty());
}

void FileSystems::expect_prepared_twice()
{
    const TreeSnapshot backup(server_->root);
    const std::vector<std::string> out = prepare();
    EXPECT_EQ(out.size(), links.size());
    for (const std::string& link : links)
        EXPECT_EQ(fs::file_size(view() + "/" + link), SampleServer::disk_size);
    const std::vector<std::string> changes = backup.changes();
    EXPECT_THAT(changes, testing::Each(testing::StartsWith(server_->image + "/_vmir")));
    EXPECT_EQ(changes.size(), 1 + 2 * links.size());

    const TreeSnapshot first(server_->root);
    EXPECT_EQ(prepare(), out);
    expect_links_reused();
    EXPECT_THAT(first.changes(), IsEmpty());
}

class ImageInAFileSystem : public FileSystems
{
};

TEST_P(ImageInAFileSystem, IsPreparedTwice)
{
    ASSERT_NO_FATAL_FAILURE(mount());
    if (IsSkipped())
        return;
    make_image();
    expect_prepared_twice();
}

INSTANTIATE_TEST_SUITE_P(Devices, ImageInAFileSystem,
                         testing::ValuesIn(file_systems_with_a_device()),
                         testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Overlays, ImageInAFileSystem, testing::ValuesIn(overlays()),
                         testing::PrintToStringParamName());

class ImageThatAFileSystemShows : public FileSystems
{
};

TEST_P(ImageThatAFileSystemShows, IsPreparedTwice)
{
    make_image();
    ASSERT_NO_FATAL_FAILURE(mount());
    if (IsSkipped())
        return;
    expect_prepared_twice();
}

INSTANTIATE_TEST_SUITE_P(Overlays, ImageThatAFileSystemShows, testing::ValuesIn(overlays()),
                         testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Fuse, ImageThatAFileSystemShows,
                         testing::ValuesIn(pass_through_file_systems()),
                         testing::PrintToStringParamName());

} // namespace
