#include "files.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sys/mount.h>
#include <system_error>
#include <utility>

namespace fs = std::filesystem;

// The helper knows this path, too.
constexpr char all_work_folders[] = "/usr/varnis/var/bench";

bool mount_work_folders()
{
    fs::create_directories(all_work_folders);
    return mount("ixfs_bench", all_work_folders, "tmpfs", MS_NOSUID | MS_NODEV, nullptr) == 0;
}

FolderWithDevices::FolderWithDevices(std::string folder) : folder_(std::move(folder))
{
    const char* const path = folder_.c_str();
    if (mount(path, path, nullptr, MS_BIND, nullptr) != 0 ||
        mount(nullptr, path, nullptr, MS_BIND | MS_REMOUNT | MS_NOSUID, nullptr) != 0)
        throw std::system_error(errno, std::generic_category(), folder_);
}

FolderWithDevices::~FolderWithDevices()
{
    umount2(folder_.c_str(), MNT_DETACH);
}

WorkFolder::WorkFolder(const std::string& name) : path_(std::string(all_work_folders) + '/' + name)
{
    fs::create_directories(path_);
}

WorkFolder::~WorkFolder()
{
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

void write_file(const std::string& path, const std::string& content)
{
    std::ofstream file(path, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file << content;
    file.close();
}

std::string read_file(const std::string& path)
{
    std::string content(fs::file_size(path), '\0');
    std::ifstream(path, std::ios::binary)
        .read(content.data(), static_cast<std::streamsize>(content.size()));
    return content;
}
