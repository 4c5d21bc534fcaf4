#include "disk_checks.h"

#include "begins_with.h"
#include "etime_retry.h"
#include "file_status.h"

#include <filesystem>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

namespace
{

[[noreturn]] void refuse()
{
    throw EcStatusException(EC_INVALID_PARAMETER, "checkDisks");
}

// ---- By their paths -----------------------------------------------------------------------------

bool ends_with(std::string_view text, std::string_view ending)
{
    return text.size() >= ending.size() && text.substr(text.size() - ending.size()) == ending;
}

// Whether normalising may change a disk's path, which begins with "backups": it takes out empty
// segments, "." and "..". Few paths have any, and normalising all took 4 % of a preparation's time.
bool may_change_when_normalised(std::string_view path)
{
    return path.find("//") != std::string_view::npos || path.find("/.") != std::string_view::npos;
}

std::string normal_form(const LmfString& path)
{
    return std::filesystem::path(path.utf8_str()).lexically_normal().native();
}

// A path of the view folder, with the "/" behind it, and whether a file lies there.
class ViewPath
{
public:
    explicit ViewPath(const LmfString& view_folder) : front_(normal_form(view_folder) + '/') {}

    bool is_above(const LmfString& path) const
    {
        return may_change_when_normalised(path.utf8_str()) ? begins_with(normal_form(path), front_)
                                                           : begins_with(path.utf8_str(), front_);
    }

private:
    std::string front_;
};

// The disks whose data links would get the name of another disk's descriptor: the disk "x" where
// there is an "x-flat".
std::set<std::string_view> disks_shadowed(const std::vector<VmirPath>& records)
{
    constexpr std::string_view ending = "-flat";
    std::set<std::string_view> names;
    for (const VmirPath& disk : records) {
        const std::string_view name = disk.baseName.text();
        if (ends_with(name, ending))
            names.insert(name.substr(0, name.size() - ending.size()));
    }
    return names;
}

void check_paths(const Log& log, const LmfString& view_folder, const std::vector<VmirPath>& records)
{
    const ViewPath view(view_folder);
    const std::set<std::string_view> shadowed = disks_shadowed(records);
    for (const VmirPath& disk : records) {
        const char* const path = disk.datastoreDescPath.utf8_str();
        if (view.is_above(disk.originalDescPath)) {
            log.error("ERR - Disk lies in the view folder: %s\n", path);
            refuse();
        }
        if (shadowed.count(disk.baseName.text()) != 0) {
            log.error("ERR - Another disk's descriptor has the name of the data file of: %s\n",
                      path);
            refuse();
        }
    }
}

// ---- By what an earlier preparation has left ----------------------------------------------------

// A slow server's silence is no answer: what it hides would count as missing, and be used
// unchecked.
FileStatus patient_status(int folder, const char* name)
{
    FileStatus status;
    call_again_on_etime([&] { return (status = status_of(folder, name)) ? 0 : -1; });
    return status;
}

// Checks disks against the view folder that is there.
class EarlierView
{
public:
    EarlierView(const Log& log, Image& image, OpenFile folder)
        : log_(log), image_(image), folder_(std::move(folder))
    {
    }

    // Returns the names of the data links that are there.
    LinkNames check(const std::vector<VmirPath>& records)
    {
        std::vector<FileStatus> data;
        data.reserve(records.size());
        for (const VmirPath& disk : records) {
            data.push_back(status_of_data(disk));
            if (data.back())
                all_data_.insert({data.back()->st_dev, data.back()->st_ino});
        }
        for (std::size_t i = 0; i < records.size(); ++i)
            check(records[i], data[i]);
        return std::move(links_);
    }

private:
    // A file's device and number.
    using Identity = std::pair<dev_t, ino_t>;

    FileStatus entry(const char* name) const { return patient_status(folder_.descriptor(), name); }

    const ImageFolder* open_folder(std::string_view path)
    {
        const ImageFolder* folder = nullptr;
        call_again_on_etime([&] { return (folder = image_.folder(path)) != nullptr ? 0 : -1; });
        return folder;
    }

    FileStatus status_of_data(const VmirPath& disk)
    {
        const ImageFile data = image_.file(disk.originalVmdkPath);
        const ImageFolder* const folder = open_folder(data.folder());
        return folder != nullptr ? patient_status(folder->open.descriptor(), data.name())
                                 : std::nullopt;
    }

    void check(const VmirPath& disk, const FileStatus& data)
    {
        const char* const path = disk.datastoreDescPath.utf8_str();
        if (lies_in_view(disk)) {
            log_.error("ERR - Disk lies in the view folder: %s\n", path);
            refuse();
        }
        if (is_data_link(image_.file(disk.viewDescPath).name())) {
            log_.error("ERR - Descriptor has the name of another disk's data link in the view: "
                       "%s\n",
                       path);
            refuse();
        }
        const ImageFile link_file = image_.file(disk.viewVmdkPath);
        const FileStatus link = entry(link_file.name());
        if (is_certainly_other(link, data)) {
            log_.error("ERR - Data link in the view is another file than the data of: %s\n", path);
            refuse();
        }
        if (link)
            links_.insert(link_file.name());
    }

    // The paths have been compared; but a symbolic link may lead into the view.
    bool lies_in_view(const VmirPath& disk)
    {
        const ImageFile descriptor = image_.file(disk.originalDescPath);
        const ImageFolder* const folder = open_folder(descriptor.folder());
        return folder != nullptr && folder->through_link && image_.lies_in(*folder, folder_);
    }

    // Whether the view's entry of this name links some disk's data. The descriptor of a disk
    // "x-flat" has such a name, too. But it has no second name, and no "x.vmdk" lies beside it.
    bool is_data_link(const char* name) const
    {
        constexpr std::string_view ending = "-flat.vmdk";
        if (!ends_with(name, ending))
            return false;
        const FileStatus status = entry(name);
        if (!status || !is_regular(*status))
            return false;
        std::string disk = name;
        disk.resize(disk.size() - ending.size());
        return status->st_nlink > 1 || entry((disk + ".vmdk").c_str());
    }

    // A file system may number the names of one file apart. Then only size and time tell.
    bool is_certainly_other(const FileStatus& link, const FileStatus& data) const
    {
        if (!link || is_same_file(link, data))
            return false;
        if (!is_regular(*link))
            return true;
        if (!data)
            return false; // the link step will report the missing file
        return !is_regular(*data) || all_data_.count({link->st_dev, link->st_ino}) != 0 ||
               link->st_size != data->st_size || link->st_mtim.tv_sec != data->st_mtim.tv_sec ||
               link->st_mtim.tv_nsec != data->st_mtim.tv_nsec;
    }

    const Log& log_;
    Image& image_;
    OpenFile folder_;
    std::set<Identity> all_data_; // of all disks of the list
    LinkNames links_;
};

} // namespace

LinkNames checkDisks(const Log& log, Image& image, const ImageLocation& location,
                     const std::vector<VmirPath>& records)
{
    check_paths(log, location.view_folder, records);
    const ImageFile place = image.file(location.view_folder);
    OpenFile view;
    call_again_on_etime([&] { return (view = image.open_folder(place)).is_open() ? 0 : -1; });
    if (!view.is_open())
        return {};
    return EarlierView(log, image, std::move(view)).check(records);
}
