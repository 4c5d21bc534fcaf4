#include "image_plan.h"

#include "log_text.h"
#include "silent_handle.h"
#include "usage_error.h"

#include <filesystem>
#include <ixfs_vmir.h>
#include <map>
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

// Checks the disks of a request.
class DiskChecks
{
public:
    DiskChecks(const Request& request, const DiskName& name_of)
        : disks_(request.disks), name_of_(name_of)
    {
    }

    void check_texts() const
    {
        for (std::size_t i = 0; i < disks_.size(); ++i) {
            const std::string problem = check_text(disks_[i]);
            if (!problem.empty())
                refuse(i, problem);
        }
    }

    // The library's records of all disks.
    std::vector<VmirPath> derive(LmfString& view_path) const
    {
        std::vector<std::string> disks = disks_;
        std::vector<VmirPath> records;
        try {
            populateVmirPathVector(SilentHandle().get(), disks, view_path, records);
        } catch (const EcStatusException&) {
            const std::size_t index = first_incomplete(records);
            refuse(index, missing_part(records.at(index)));
        }
        return records;
    }

    void check_places(const ImagePlan& plan) const
    {
        std::map<std::string, std::size_t> owners; // of the data files
        for (std::size_t i = 0; i < plan.disks.size(); ++i) {
            const DiskPlan& disk = plan.disks[i];
            if (normal_form(disk.descriptor).rfind(plan.view_folder + '/', 0) == 0)
                refuse(i, "lies in the view folder");
            const auto [first, is_new] = owners.try_emplace(normal_form(disk.data), i);
            if (!is_new)
                refuse(i, "is the same file as " + name_of_(first->second) +
                              "; the disks would share their data");
        }
    }

    // The descriptor of a disk "x-flat" would have the name of the data link of a disk "x".
    void check_names(const ImagePlan& plan) const
    {
        std::map<std::string_view, std::size_t> descriptors;
        for (std::size_t i = 0; i < plan.disks.size(); ++i)
            descriptors.emplace(plan.disks[i].view_descriptor, i);
        for (std::size_t i = 0; i < plan.disks.size(); ++i) {
            const auto other = descriptors.find(plan.disks[i].view_data);
            if (other != descriptors.end())
                refuse(i, "its data would have the name of the descriptor of " +
                              name_of_(other->second) + " in the view");
        }
    }

private:
    [[noreturn]] void refuse(std::size_t index, const std::string& problem) const
    {
        throw UsageError(name_of_(index) + " (\"" + escape_control_characters(disks_.at(index)) +
                         "\"): " + problem);
    }

    static std::size_t first_incomplete(const std::vector<VmirPath>& records)
    {
        std::size_t index = 0;
        while (!records.at(index).datastoreViewDescPath.text().empty())
            ++index;
        return index;
    }

    const std::vector<std::string>& disks_;
    const DiskName& name_of_;
};

DiskPlan plan_of(const VmirPath& record)
{
    return {record.datastoreDescPath.text(),    record.originalDescPath.text(),
            record.originalVmdkPath.text(),     record.baseName.text(),
            record.viewDescPath.text(),         record.viewVmdkPath.text(),
            record.datastoreViewDescPath.text()};
}

// Everything but the disks.
ImagePlan plan_folders(const Request& request)
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
    return {folder.text(), view_folder.text(), {}};
}

} // namespace

std::string disk_number(std::size_t index)
{
    return "disk " + std::to_string(index + 1);
}

ImagePlan plan_image(const Request& request, const DiskName& name_of)
{
    ImagePlan plan = plan_folders(request);
    const DiskChecks checks(request, name_of);
    checks.check_texts();
    LmfString view_path;
    view_path = plan.view_folder;
    for (const VmirPath& record : checks.derive(view_path))
        plan.disks.push_back(plan_of(record));
    checks.check_places(plan);
    checks.check_names(plan);
    return plan;
}
