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
const fs::path image_directory = "backups/host/allusers/full/1700000000";

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

std::string make_image(const std::string& server, const std::string& config)
{
    const fs::path root = images / server;
    fs::remove_all(root);
    fs::create_directories(mount_base);
    fs::create_directories(images);
    if (server == "empty") {
        fs::create_directory(root);
        return root;
    }
    write_disk(root / image_directory / "vm");
    write_disk(root / image_directory / "vm_1");
    write(root / image_directory / "^^.^VIRTUAL_FILE_FSMAP", config);
    return root;
}

std::string in_datastore(const std::string& name)
{
    return "[ds] " + (image_directory / name).string();
}

} // namespace

FaultImage::FaultImage(const std::string& server_)
    : server(server_), mount_point(mount_base / server), disks{in_datastore("vm/disk.vmdk.desc"),
                                                               in_datastore("vm_1/disk.vmdk.desc")},
      disks_in_view{in_datastore("_vmir/disk.vmdk"), in_datastore("_vmir/disk(1).vmdk")},
      root_(make_image(server, config)), view_(root_ / image_directory / "_vmir"), originals_(root_)
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
    const fs::path image = fs::path(root_) / image_directory;
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
