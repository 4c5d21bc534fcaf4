#include "fault_image.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

namespace
{

namespace fs = std::filesystem;

const fs::path images = "/usr/varnis/var/fault-images"; // where fault_helper.c looks
const fs::path mount_base = "/usr/varnis/var/ixfs";

fs::path image_directory(long backup_time)
{
    return "backups/host/allusers/full/" + std::to_string(backup_time);
}

void write(const fs::path& file, const std::string& bytes)
{
    std::ofstream stream(file, std::ios::binary);
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    stream << bytes << std::flush;
}

std::string descriptor(const std::string& data_file_name, const std::string& line_end)
{
    return "# Disk DescriptorFile\nRW 2048 VMFS \"" + data_file_name + "\"" + line_end +
           "ddb.uuid = \"60 00 C2 9f 11 f8 50 a5-18 4c 8d 2f 00 23 4d 0a\"\n";
}

void write_disk(const fs::path& folder)
{
    fs::create_directories(folder);
    write(folder / "disk.vmdk", "data in " + folder.filename().string());
    write(folder / "disk.vmdk.desc", descriptor("disk-flat.vmdk", "\n"));
}

fs::path make_image(const std::string& server, const fs::path& directory, const std::string& config)
{
    const fs::path root = images / server;
    fs::remove_all(root);
    fs::create_directories(mount_base);
    fs::create_directories(images);
    if (server == "empty") {
        fs::create_directory(root);
        return root;
    }
    write_disk(root / directory / "vm");
    write_disk(root / directory / "vm_1");
    write(root / directory / "^^.^VIRTUAL_FILE_FSMAP", config);
    return root;
}

std::vector<std::string> in_datastore(const fs::path& directory,
                                      const std::vector<std::string>& names)
{
    std::vector<std::string> paths;
    for (const std::string& name : names)
        paths.push_back("[ds] " + (directory / name).string());
    return paths;
}

} // namespace

FaultImage::FaultImage(const std::string& server_, long backup_time)
    : server(server_), mount_point(mount_base / server),
      backup_id("host_" + std::to_string(backup_time)),
      disks(
          in_datastore(image_directory(backup_time), {"vm/disk.vmdk.desc", "vm_1/disk.vmdk.desc"})),
      disks_in_view(
          in_datastore(image_directory(backup_time), {"_vmir/disk.vmdk", "_vmir/disk(1).vmdk"})),
      root_(make_image(server, image_directory(backup_time), config)),
      image_(root_ / image_directory(backup_time)), view_(image_ + "/_vmir"), originals_(root_)
{
}

FaultImage::~FaultImage()
{
    std::error_code error;
    fs::remove(mount_point, error); // never what it may hold
    fs::remove_all(root_, error);
}

void FaultImage::expect_unchanged() const
{
    fs::remove_all(view_);
    EXPECT_THAT(originals_.changes(), testing::IsEmpty());
}

void FaultImage::expect_view() const
{
    const fs::path image = image_;
    const fs::path view = view_;
    for (const auto& [folder, name] : {std::pair("vm", "disk"), std::pair("vm_1", "disk(1)")}) {
        const std::string link_name = std::string(name) + "-flat.vmdk";
        EXPECT_TRUE(fs::equivalent(view / link_name, image / folder / "disk.vmdk")) << link_name;
        const std::string written = bytes_of(view / (std::string(name) + ".vmdk"));
        const std::string old = descriptor(link_name, "\r\n");
        const std::size_t uuid = old.find("ddb.uuid");
        EXPECT_EQ(written.substr(0, uuid), old.substr(0, uuid));
        EXPECT_EQ(written.size(), old.size() + 1) << "its line ends in CR LF";
        EXPECT_NE(written.substr(uuid), old.substr(uuid));
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(view_), {}), 4);
}

bool FaultImage::has_view() const
{
    return fs::exists(view_);
}
