// The derivation of disks' paths. There is no floor: the goals are times and a count.
#include "figures.h"
#include "support/handle.h"
#include "support/measure.h"

#include <ixfs_vmir.h>

namespace
{

constexpr char image_folder[] = "backups/bench-client/allusers/full/1700000000";

std::string entry_of(const std::string& folder)
{
    return std::string("[nfs_ds] ") + image_folder + "/" + folder + "/disk.vmdk.desc";
}

LmfString view_folder()
{
    return {(std::string(image_folder) + "/_vmir").c_str(), LmfString::to_nul, nullptr, 0};
}

// Disks one by one, each of a VM of its own.
class OneDisk : public Work
{
public:
    void set_up() override
    {
        std::vector<std::string> entries(disks_, entry_of("vm1"));
        buildVmirPathVectorFromCharArray(entries, records_);
        base_names_.assign(disks_, {});
    }

    bool call() override
    {
        for (std::size_t i = 0; i < disks_; ++i)
            populateVmirPath(handle_.get(), base_names_[i], view_folder_, records_[i]);
        return true;
    }

    bool is_done() override
    {
        return records_.back().viewVmdkPath.text() == view_folder_.text() + "/disk-flat.vmdk";
    }

    long operations() const override { return disks_; }

private:
    static constexpr std::size_t disks_ = 100; // so many that the clock does not count
    Handle handle_ = make_handle();
    LmfString view_folder_ = view_folder();
    std::vector<VmirPath> records_;
    std::vector<std::set<LmfString>> base_names_;
};

// All disks of one VM, which all have the same name.
class SameNames : public Work
{
public:
    SameNames()
    {
        for (int i = 0; i < disks_; ++i)
            entries_.push_back(entry_of("vm" + std::to_string(i)));
    }

    void set_up() override { records_ = {}; }

    bool call() override
    {
        populateVmirPathVector(handle_.get(), entries_, view_folder_, records_);
        return true;
    }

    bool is_done() override
    {
        return records_.back().baseName.text() == "disk(" + std::to_string(disks_ - 1) + ")";
    }

private:
    static constexpr int disks_ = 10000;
    Handle handle_ = make_handle();
    LmfString view_folder_ = view_folder();
    std::vector<std::string> entries_;
    std::vector<VmirPath> records_;
};

} // namespace

void add_path_figures()
{
    add_benchmark("disk_paths", "ours", [] { return std::make_unique<OneDisk>(); });
    add_benchmark("base_names_10000", "ours", [] { return std::make_unique<SameNames>(); });
}
