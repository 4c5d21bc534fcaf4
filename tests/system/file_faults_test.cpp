// Faults in the operations on files and folders.
#include "fault_sweep.h"
#include "temp_dir.h"

#include <filesystem>
#include <fstream>

namespace
{

namespace fs = std::filesystem;
using namespace interpose;

// A handle, a file, and a folder that is made anew for each run.
class FileFaults : public FaultSweep
{
protected:
    FileFaults() { dir_.write("file", "bytes"); }

    virtual void furnish_folder() {}
    virtual void expect_effect() const {}

    void arrange() override
    {
        handle = silent_handle();
        make_folder();
    }

    void serve() override
    {
        make_folder();
        EXPECT_EQ(act(), undisturbed_result());
        expect_effect();
        EXPECT_EQ(dir_.read("file"), "bytes");
        handle.reset();
    }

private:
    void make_folder()
    {
        fs::remove_all(folder);
        fs::create_directory(folder);
        furnish_folder();
    }

    TempDir dir_;

protected:
    Handle handle;
    const std::string file = dir_ / "file";
    const std::string folder = dir_ / "folder";
    const std::string inside = folder + "/inside"; // what the calls are about
};

class ExistenceFaults : public FileFaults
{
protected:
    int act() override { return _ixfs_file_exists(handle.get(), file.c_str()); }
};

TEST_F(ExistenceFaults, LeaveNothingBehind)
{
    sweep({
        {only_once(fails(on_access, ETIME)), makes_no_difference}, // there are 100 calls
        {for_good(fails(on_access, ETIME)), false},
        {fails(on_access, ENOENT), false},
        {fails(on_access, EACCES), false},
        {fails(on_access, EIO), false},
    });
}

class FolderCreationFaults : public FileFaults
{
protected:
    int act() override
    {
        uint32_t segments = 0;
        return _ixfs_folder_create(handle.get(), folder.c_str(), "inside/deep", &segments, 0700);
    }

    void expect_effect() const override { EXPECT_TRUE(fs::is_directory(inside + "/deep")); }
};

TEST_F(FolderCreationFaults, LeaveNothingBehind)
{
    sweep({
        {fails(on_mkdir, ETIME), makes_no_difference}, // each folder is given up in silence
        {only_once(fails_where(on_mkdir, EEXIST, is_about("inside"))), 1}, // and then "deep" fails
        {only_once(fails_where(on_mkdir, EEXIST, unless(is_about("inside")))), makes_no_difference},
        {for_good(fails(on_mkdir, EEXIST)), makes_no_difference},
        {fails(on_mkdir, ENOSPC), 1},
        {fails(on_mkdir, EACCES), 1},
        {memory_throws(), 1},
    });
}

class LinkFaults : public FileFaults
{
protected:
    int act() override
    {
        return _ixfs_create_hard_link(handle.get(), file.c_str(), inside.c_str());
    }

    void expect_effect() const override { EXPECT_TRUE(fs::equivalent(inside, file)); }
};

TEST_F(LinkFaults, LeaveNothingBehind)
{
    sweep({
        {fails(on_link, EPERM), makes_no_difference}, // its number is that of success
        {fails(on_link, EEXIST), EEXIST},
        {fails(on_link, EMLINK), EMLINK},
        {fails(on_link, EXDEV), EXDEV},
        {fails(on_link, ETIME), ETIME},
    });
}

class FolderDeletionFaults : public FileFaults
{
protected:
    void furnish_folder() override
    {
        fs::create_directory(inside);
        fs::create_hard_link(file, inside + "/link");
        std::ofstream(folder + "/other");
    }

    int act() override { return _ixfs_folder_delete(handle.get(), folder.c_str()); }

    void take_back(int result) override { EXPECT_EQ(result == 0, !fs::exists(folder)); }
    void expect_effect() const override { EXPECT_FALSE(fs::exists(folder)); }
};

// Whether a folder has an entry left to be read.
bool has_more(DIR* folder)
{
    const long position = telldir(folder);
    bool found = false;
    while (const dirent* const entry = readdir(folder)) {
        const std::string name = entry->d_name;
        found = found || (name != "." && name != "..");
    }
    seekdir(folder, position);
    return found;
}

TEST_F(FolderDeletionFaults, LeaveNothingBehind)
{
    sweep({
        {fails(on_opendir, EACCES), 1},
        {fails(on_opendir, EMFILE), 1},
        {fails_where(on_readdir, EIO, has_more), 1},
        {fails_where(on_readdir, EIO, unless(has_more)), makes_no_difference},
        {fails(on_unlink, EACCES), 1},
        {fails(on_unlink, EBUSY), 1},
        {only_once(fails_where(on_unlink, EISDIR, is_about("inside"))), makes_no_difference},
        {only_once(fails_where(on_unlink, EISDIR, unless(is_about("inside")))), 1}, // "so a folder"
        {fails(on_stat, EIO), makes_no_difference}, // nothing is mounted there
        {fails(on_rmdir, EBUSY), 1},
        {fails(on_rmdir, ENOTEMPTY), 1},
        {fails_when_done(on_closedir, closedir, EINTR), makes_no_difference},
        {fails(on_close, EIO), makes_no_difference},
        {memory_is_null(), 1},
        {memory_throws(), 1},
    });
}

} // namespace
