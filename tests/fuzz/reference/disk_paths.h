// Every path of a VM's disks, from the list of their descriptors in datastore form.
#ifndef IXFS_FUZZ_REFERENCE_DISK_PATHS_H
#define IXFS_FUZZ_REFERENCE_DISK_PATHS_H

#include "base_names.h"
#include "pathname.h"
#include "text.h"

#include <string>
#include <vector>

namespace reference
{

struct DiskPaths {
    std::string datastore_descriptor;
    std::string datastore;
    std::string original_descriptor;
    std::string original_data;
    std::string base_name;
    std::string view_descriptor;
    std::string view_data;
    std::string datastore_view_descriptor;
    std::string failed_step; // empty when all is derived; what comes behind the step is not
};

// The name in the view that a path's last segment asks for, or nothing in `found`.
inline std::string wanted_base_name(const std::string& path, bool& found)
{
    const std::vector<std::string> names = segments(up_to_nul(path));
    std::string name = names.empty() ? "" : names.back();
    const std::size_t ending = name.rfind(".vmdk.desc");
    found = ending != std::string::npos;
    if (!found)
        return "";
    name.resize(ending);
    const bool has_snapshot_suffix = name.size() >= 7 && name[name.size() - 7] == '-' &&
                                     !contains(name.substr(name.size() - 6), "-");
    return has_snapshot_suffix ? name.substr(0, name.size() - 7) : name;
}

inline DiskPaths derive(const std::string& entry, const std::string& view,
                        std::vector<std::string>& used_names)
{
    DiskPaths disk;
    disk.datastore_descriptor = entry;

    const std::size_t bracket = entry.find(']');
    if (bracket == std::string::npos) {
        disk.failed_step = "buildDatastore";
        return disk;
    }
    disk.datastore = entry.substr(0, bracket) + "]";

    const std::string behind = entry.substr(bracket + 1);
    const std::size_t backups = behind.find("backups");
    if (backups == std::string::npos) {
        disk.failed_step = "buildOriginalDescPath";
        return disk;
    }
    disk.original_descriptor = behind.substr(backups);

    const std::size_t ending = disk.original_descriptor.rfind(".desc");
    if (ending == std::string::npos) {
        disk.failed_step = "buildOriginalVmdkPath";
        return disk;
    }
    disk.original_data = disk.original_descriptor.substr(0, ending);

    bool found = false;
    const std::string wanted = wanted_base_name(entry, found);
    if (!found) {
        disk.failed_step = "buildBaseName";
        return disk;
    }
    disk.base_name = free_name(used_names, wanted);
    used_names.push_back(disk.base_name);
    disk.view_descriptor = view + "/" + disk.base_name + ".vmdk";
    disk.view_data = view + "/" + disk.base_name + "-flat.vmdk";
    disk.datastore_view_descriptor = disk.datastore + " " + disk.view_descriptor;
    return disk;
}

// Derives the disks up to the first that fails; those behind it have only their entry.
inline std::vector<DiskPaths> derive_all(const std::vector<std::string>& entries,
                                         const std::string& view)
{
    std::vector<DiskPaths> disks;
    std::vector<std::string> used_names;
    bool failed = false;
    for (const std::string& entry : entries) {
        DiskPaths disk;
        disk.datastore_descriptor = entry;
        if (!failed)
            disk = derive(entry, view, used_names);
        failed = failed || !disk.failed_step.empty();
        disks.push_back(disk);
    }
    return disks;
}

} // namespace reference

#endif
