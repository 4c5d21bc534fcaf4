// Preparing eight VMs of one server: each by a call of its own, and all in one mount, by the
// functions of the interface. The call does more: it reads the VM configuration, and checks what
// docs/performance.md lists. CPU time of this process and its children.
#include "figures.h"
#include "support/children_time.h"
#include "support/counting_log.h"
#include "support/image.h"
#include "support/measure.h"
#include "support/mounting.h"

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr char server[] = "several";
constexpr int vms = 8;
constexpr int disks_of_each = 4;

const std::deque<Image>& images()
{
    static const std::deque<Image> all = [] {
        std::deque<Image> made;
        for (int i = 0; i < vms; ++i)
            made.emplace_back(server, disks_of_each, "<vm/>\n", "client" + std::to_string(i));
        return made;
    }();
    return all;
}

bool put_into_view(_ixfs_control_t* handle, const std::string& mount_point, const VmirPath& disk)
{
    const auto at = [&](const LmfString& path) {
        return mount_point + '/' + path.utf8_str();
    };
    const std::string data_name = disk.baseName.utf8_str() + std::string("-flat.vmdk");
    const std::string link = at(disk.viewVmdkPath);
    return _ixfs_copy_desc(handle, at(disk.originalDescPath).c_str(), at(disk.viewDescPath).c_str(),
                           data_name.c_str()) == 1 &&
           (_ixfs_file_exists(handle, link.c_str()) == 1 ||
            _ixfs_create_hard_link(handle, at(disk.originalVmdkPath).c_str(), link.c_str()) == 1);
}

// Builds the view of one VM in what the handle has mounted.
bool build_view(_ixfs_control_t* handle, const std::string& mount_point,
                const std::string& backup_id, std::vector<std::string>& entries)
{
    std::string client;
    long backup_time = 0;
    if (makeClientAndBackupTime(handle, backup_id, client, backup_time) != EC_OK)
        return false;
    LmfString folder;
    buildViewPath(handle, client, backup_time, 0, folder);
    std::vector<VmirPath> disks;
    populateVmirPathVector(handle, entries, folder, disks);

    _ixfs_view_t* const view = _ixfs_view_create(handle);
    char base_name[256];
    std::uint32_t segments = 0;
    bool is_built =
        view != nullptr &&
        _ixfs_view_lock(handle, view, backup_time, base_name, sizeof(base_name)) == 1 &&
        _ixfs_folder_create(handle, mount_point.c_str(), folder.utf8_str(), &segments, 0755) == 0;
    for (const VmirPath& disk : disks)
        is_built = is_built && put_into_view(handle, mount_point, disk);
    _ixfs_view_delete(handle, view);
    return is_built;
}

class Preparations : public Work
{
public:
    void set_up() override
    {
        for (const Image& image : images())
            image.remove_view();
    }
    bool is_done() override
    {
        for (const Image& image : images()) {
            if (read_file(image.view_folder() + "/" + image.disks().back() + ".vmdk") !=
                descriptor_text(image.disks().back() + "-flat.vmdk"))
                return false;
        }
        return true;
    }
};

class MountEach : public Preparations
{
public:
    bool call() override
    {
        LogInfo log{nullptr, count_line};
        bool all_prepared = true;
        for (const Image& image : images()) {
            std::vector<std::string> entries = image.entries();
            std::vector<std::string> paths;
            std::string configuration;
            all_prepared = ixfs_prepare_vmir(image.creds(), entries, &log, configuration, paths,
                                             false) == EC_OK &&
                           all_prepared;
        }
        return all_prepared;
    }
};

class MountOnce : public Preparations
{
public:
    bool call() override
    {
        const MountingHandle handle(server, count_line);
        const char* const mount_point = handle.mount();
        bool all_prepared = mount_point != nullptr;
        for (const Image& image : images()) {
            std::vector<std::string> entries = image.entries();
            all_prepared = all_prepared &&
                           build_view(handle.get(), mount_point, image.creds().backup_id, entries);
        }
        return handle.unmount() && all_prepared;
    }
};

} // namespace

void add_several_vms_figures(Extent /*extent*/)
{
    const std::string figure = "prepare_" + std::to_string(vms) + "_vms";
    add_benchmark(
        figure, "mount_each", [] { return std::make_unique<MountEach>(); },
        cpu_seconds_with_children);
    add_benchmark(
        figure, "mount_once", [] { return std::make_unique<MountOnce>(); },
        cpu_seconds_with_children);
}
