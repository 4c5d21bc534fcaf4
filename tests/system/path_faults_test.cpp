// Faults in what only computes: paths and UUIDs. There only memory and entropy can run short.
#include "fault_sweep.h"

#include "ixfs_vmir.h"

#include <cstring>
#include <set>
#include <string>
#include <vector>

namespace
{

using namespace interpose;

// What is exported beneath ixfs_prepare_vmir.
class PathFaults : public FaultSweep
{
protected:
    void arrange() override
    {
        records_.clear();
        out_.clear();
    }

    int act() override
    {
        std::string client;
        long time = 0;
        LmfString view_path;
        LmfPathname xml_path;
        const ec_status status = makeClientAndBackupTime(handle_.get(), backup_id_, client, time);
        if (status != EC_OK)
            return status;
        buildViewPath(handle_.get(), client, time, 0, view_path);
        populateVmirPathVector(handle_.get(), entries_, view_path, records_);
        std::set<LmfString> names;
        ensureUniquenessOfBasename(names, records_.front().baseName);
        ensureUniquenessOfBasename(names, records_.front().baseName);
        convertVmdkPathsListToCharArrays(records_, out_);
        return EC_OK;
    }

    void take_back(int result) override
    {
        EXPECT_EQ(out_, result == EC_OK ? expected_ : std::vector<std::string>{});
    }

private:
    const Handle handle_ = silent_handle();
    const std::string backup_id_ = "a.host.of.a.long.name_1700000000";
    const std::string view_ = "backups/a.host.of.a.long.name/allusers/full/1700000000/_vmir/";
    std::vector<std::string> entries_{"[ds] backups/vm/disk.vmdk.desc",
                                      "[ds] backups/vm_1/disk.vmdk.desc"};
    const std::vector<std::string> expected_{"[ds] " + view_ + "disk.vmdk",
                                             "[ds] " + view_ + "disk(1).vmdk"};
    std::vector<VmirPath> records_;
    std::vector<std::string> out_;
};

TEST_F(PathFaults, LeaveNothingBehind)
{
    sweep({
        {memory_throws(), threw_bad_alloc},
    });
}

// A path that is refused, by an exception that carries a text.
class RefusalFaults : public FaultSweep
{
protected:
    int act() override
    {
        try {
            buildDatastore(malformed_, out_);
            return EC_OK;
        } catch (const EcStatusException& refusal) {
            const bool complete = std::strcmp(refusal.what(), "buildDatastore: error code: 20, "
                                                              "invalid parameter") == 0;
            return complete ? static_cast<int>(refusal.status) : threw_what_it_must_not;
        }
    }

private:
    const LmfString malformed_;
    LmfString out_;
};

TEST_F(RefusalFaults, LeaveNothingBehind)
{
    sweep({
        {memory_is_null(), makes_no_difference}, // the runtime has a reserve for exceptions
        {memory_throws(), threw_bad_alloc},
    });
}

class DiskUuidFaults : public FaultSweep
{
protected:
    int act() override { return static_cast<int>(getVmdkUuid().size()); }
};

TEST_F(DiskUuidFaults, LeaveNothingBehind)
{
    sweep({
        {memory_throws(), threw_bad_alloc},
        {fails(on_getrandom, ENOSYS), threw_entropy_error},
        {only_once(fails(on_getrandom, EINTR)), makes_no_difference}, // it is asked again
    });
}

} // namespace
