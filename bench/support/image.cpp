#include "image.h"

#include <cstdio>
#include <filesystem>

namespace fs = std::filesystem;

namespace
{

constexpr char backup_time[] = "1700000000";

std::string disk_name(int number)
{
    char name[32];
    std::snprintf(name, sizeof(name), "disk%05d", number);
    return name;
}

} // namespace

std::string descriptor_text(const std::string& extent_name)
{
    return "# Disk DescriptorFile\n"
           "version=1\n"
           "encoding=\"UTF-8\"\n"
           "CID=fffffffe\n"
           "parentCID=ffffffff\n"
           "createType=\"vmfs\"\n"
           "\n"
           "# Extent description\n"
           "RW 2097152 VMFS \"" +
           extent_name +
           "\"\r\n"
           "\n"
           "# The Disk Data Base\n"
           "#DDB\n"
           "\n"
           "ddb.adapterType = \"lsilogic\"\n"
           "ddb.geometry.cylinders = \"130\"\n"
           "ddb.geometry.heads = \"255\"\n"
           "ddb.geometry.sectors = \"63\"\n"
           "ddb.longContentID = \"0123456789abcdef01234567fffffffe\"\n"
           "ddb.thinProvisioned = \"1\"\n"
           "ddb.uuid = \"60 00 C2 9f 01 23 45 67-89 ab cd ef 01 23 45 67\"\n"
           "ddb.virtualHWVersion = \"13\"\n";
}

Image::Image(const std::string& server, int disks, const std::string& configuration,
             const std::string& client)
    : server_(server), backup_id_(client + "_" + backup_time), root_(server),
      folder_("backups/" + client + "/allusers/full/" + backup_time)
{
    fs::create_directories(disk_folder());
    write_file(configuration_file(), configuration);
    for (int i = 0; i < disks; ++i) {
        disks_.push_back(disk_name(i));
        const std::string data = disk_folder() + "/" + disks_.back() + ".vmdk";
        write_file(data, "");
        write_file(data + ".desc", descriptor_text("original-flat.vmdk"));
        entries_.push_back("[nfs_ds] " + folder_ + "/vm1/" + disks_.back() + ".vmdk.desc");
    }
}

MountCreds Image::creds() const
{
    return {server_.c_str(),      40100,     0, 30, "", "mount-credential",
            "unmount-credential", backup_id_};
}

std::string Image::configuration_file() const
{
    return root_.path() + "/" + folder_ + "/^^.^VIRTUAL_FILE_FSMAP";
}

void Image::remove_view() const
{
    fs::remove_all(view_folder());
}
