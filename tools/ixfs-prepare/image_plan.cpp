#include "image_plan.h"

#include "log_text.h"
#include "silent_handle.h"
#include "usage_error.h"

#include <filesystem>
#include <ixfs_vmir.h>
#include <map>
#include <set>
#include <string_view>

namespace
{

bool has_parent_segment(const std::string& path)
{
    return ("/" + path + "/").find("/../") != std::string::npos;
}

// What lies behind the "[<datastore>]" of a path in datastore form.
std::string without_datastore(const std::string& path)
{
    const std::size_t start = path.find_first_not_of(' ', path.find(']') + 1);
    return start != std::string::npos ? path.substr(start) : "";
}

// A path with ".." could lead out of the image.
std::string check_text(const std::string& disk)
{
    if (disk.empty())
        return "must not be empty";
    if (disk.find('\0') != std::string::npos)
        return "must not hold a NUL";
    if (has_parent_segment(disk) || has_parent_segment(without_datastore(disk)))
        return "must not hold a \"..\" segment";
    return "";
}

// Why the library could not fill a record: it stops at the first field that it cannot derive.
std::string missing_part(const VmirPath& record)
{
    if (record.datastore.text().empty())
        return "has no \"[<datastore>]\"";
    if (record.originalDescPath.text().empty())
        return "has no \"backups\" behind its \"[<datastore>]\"";
    return "its last part does not end in \".vmdk.desc\"";
}

std::string normal_form(const std::string& path)
{
    return std::filesystem::path(path).lexically_normal().native();
}

// Looks at one disk of a list after another.
class DiskPlanner
{
public:
    DiskPlanner(const std::string& view_folder, const DiskName& name_of)
        : view_folder_(view_folder), view_path_(view_folder.c_str(), LmfString::to_nul, nullptr, 0),
          name_of_(name_of)
    {
    }

    DiskPlan plan(std::size_t index, const std::string& disk)
    {
        const std::string problem = check_text(disk);
        if (!problem.empty())
            refuse(index, disk, problem);
        const VmirPath record = derive(index, disk);
        DiskPlan plan{disk,
                      record.originalDescPath.text(),
                      record.originalVmdkPath.text(),
                      record.baseName.text(),
                      record.viewDescPath.text(),
                      record.viewVmdkPath.text(),
                      record.datastoreViewDescPath.text()};
        if ((normal_form(plan.descriptor) + '/').rfind(view_folder_ + '/', 0) == 0)
            refuse(index, disk, "lies in the view folder");
        const auto [first, is_new] = owners_.try_emplace(normal_form(plan.data), index);
        if (!is_new)
            refuse(index, disk,
                   "is the same file as " + name_of_(first->second) +
                       "; the disks would share their data");
        return plan;
    }

    // The descriptor of a disk "x-flat" would have the name of the data link of a disk "x".
    void check_names(const std::vector<DiskPlan>& disks) const
    {
        std::map<std::string_view, std::size_t> descriptors;
        for (std::size_t i = 0; i < disks.size(); ++i)
            descriptors.emplace(disks[i].view_descriptor, i);
        for (std::size_t i = 0; i < disks.size(); ++i) {
            const auto other = descriptors.find(disks[i].view_data);
            if (other != descriptors.end())
                refuse(i, disks[i].disk,
                       "its data would have the name of the descriptor of " +
                           name_of_(other->second) + " in the view");
        }
    }

private:
    [[noreturn]] void refuse(std::size_t index, const std::string& disk,
                             const std::string& problem) const
    {
        throw UsageError(name_of_(index) + " (\"" + escape_control_characters(disk) +
                         "\"): " + problem);
    }

    VmirPath derive(std::size_t index, const std::string& disk)
    {
        VmirPath record;
        record.datastoreDescPath.text() = disk;
        try {
            populateVmirPath(handle_.get(), base_names_, view_path_, record);
        } catch (const EcStatusException&) {
            refuse(index, disk, missing_part(record));
        }
        return record;
    }

    SilentHandle handle_;
    std::string view_folder_;
    LmfString view_path_;
    const DiskName& name_of_;
    std::set<LmfString> base_names_;
    std::map<std::string, std::size_t> owners_; // of the data files
};

} // namespace

std::string disk_number(std::size_t index)
{
    return "disk " + std::to_string(index + 1);
}

ImagePlan plan_image(const Request& request, const DiskName& name_of)
{
    const SilentHandle handle;
    std::string client;
    long time = 0;
    if (makeClientAndBackupTime(handle.get(), request.backup_id, client, time) != EC_OK)
        throw UsageError("malformed backup id");
    LmfPathname folder;
    buildImagePath(handle.get(), client, time, request.schedule_type, folder);
    LmfString view_folder;
    buildViewPath(handle.get(), client, time, request.schedule_type, view_folder);

    ImagePlan plan{folder.text(), view_folder.text(), {}};
    DiskPlanner planner(plan.view_folder, name_of);
    for (std::size_t i = 0; i < request.disks.size(); ++i)
        plan.disks.push_back(planner.plan(i, request.disks[i]));
    planner.check_names(plan.disks);
    return plan;
}
