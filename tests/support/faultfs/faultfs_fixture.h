// A source folder mounted through ixfs-faultfs, anew for each test.
#ifndef FAULTFS_FAULTFS_FIXTURE_H
#define FAULTFS_FAULTFS_FIXTURE_H

#include "fault_mount.h"
#include "temp_dir.h"

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>

#include <gtest/gtest.h>

namespace faultfs
{

// The error number of a system call just made, 0 after a success.
inline int error_of(int result)
{
    return result == -1 ? errno : 0;
}

class FaultfsTest : public testing::Test
{
protected:
    FaultfsTest()
    {
        dir.make_folder("source/backups");
        dir.make_folder("mount");
        fs_.emplace(source(), dir / "mount");
    }

    void TearDown() override { EXPECT_EQ(fs().end(), 0); }

    FaultMount& fs() { return *fs_; }
    std::filesystem::path source() const { return dir / "source"; }
    std::filesystem::path mounted(const std::string& name) { return fs().path() / name; }

    const TempDir dir; // holds "source", and as "mount" what the file system makes of it

private:
    std::optional<FaultMount> fs_;
};

} // namespace faultfs

#endif
