// Faults while a descriptor is copied.
#include "fault_sweep.h"
#include "temp_dir.h"

#include <filesystem>

namespace
{

namespace fs = std::filesystem;
using namespace interpose;

// A copy over a name that belongs to another file too, which must not change.
class DescriptorFaults : public FaultSweep
{
protected:
    DescriptorFaults()
    {
        dir_.write("old",
                   "# Disk DescriptorFile\nRW 1 VMFS \"a-flat.vmdk\"\nddb.uuid = \"none\"\n");
        dir_.write("data", "bytes");
    }

    void arrange() override
    {
        handle = silent_handle(flags);
        fs::remove(dir_ / "new");
        dir_.write("data", "bytes");
        fs::create_hard_link(dir_ / "data", dir_ / "new");
    }

    int act() override
    {
        return _ixfs_copy_desc(handle.get(), old_path_.c_str(), new_path_.c_str(), "b-flat.vmdk");
    }

    void take_back(int result) override
    {
        if (result == 1) {
            expect_copy();
        }
    }

    void serve() override
    {
        EXPECT_EQ(act(), 1);
        expect_copy();
        EXPECT_EQ(dir_.read("data"), "bytes");
        handle.reset();
    }

    int flags = 0;
    Handle handle;

private:
    void expect_copy() const
    {
        const std::string copy = dir_.read("new");
        const std::string front = "# Disk DescriptorFile\nRW 1 VMFS \"b-flat.vmdk\"\r\n";
        EXPECT_EQ(copy.substr(0, front.size()), front);
        const std::string rest = copy.substr(front.size());
        const std::string key = "ddb.uuid = \"";
        EXPECT_EQ(rest.substr(0, key.size()), key);
        EXPECT_EQ(rest == key + "none\"\n", flags == 0) << rest;
    }

    TempDir dir_;
    const std::string old_path_ = dir_ / "old";
    const std::string new_path_ = dir_ / "new";
};

const FaultCases copy_faults{
    // of either file
    {fails(on_open, EMFILE), 0},
    {fails(on_close, EIO), makes_no_difference}, // all was flushed before
    // of the old one
    {fails(on_read, EIO), 0},
    // of the new one
    {fails_where(on_open, ENOSPC, is_to_write), 0},
    {fails(on_stat, EIO), makes_no_difference}, // what may be another file's name is taken away
    {fails(on_stat, ETIME), makes_no_difference},
    {fails(on_unlink, EACCES), 0},
    {fails(on_write, ENOSPC), 0},
};

TEST_F(DescriptorFaults, LeaveNothingBehind)
{
    sweep(copy_faults);
}

class NewUuidFaults : public DescriptorFaults
{
protected:
    NewUuidFaults() { flags = IXFS_FLAG_NEW_DISK_UUID; }
};

TEST_F(NewUuidFaults, LeaveNothingBehind)
{
    sweep(copy_faults + FaultCases{
                            {memory_throws(), threw_bad_alloc},
                            {fails(on_getrandom, ENOSYS), threw_entropy_error},
                            {only_once(fails(on_getrandom, EINTR)), makes_no_difference},
                        });
}

} // namespace
