// A source folder mounted through ixfs-faultfs, anew for each test.
#ifndef FAULTFS_FAULTFS_FIXTURE_H
#define FAULTFS_FAULTFS_FIXTURE_H

#include "fault_mount.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

namespace faultfs
{

// The error number of a system call just made, 0 after a success.
inline int error_of(int result)
{
    return result == -1 ? errno : 0;
}

inline void write_file(const std::filesystem::path& path, const std::string& text)
{
    std::ofstream(path, std::ios::binary) << text;
}

inline std::string read_file(const std::filesystem::path& path)
{
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

class FaultfsTest : public ::testing::Test
{
protected:
    FaultfsTest()
    {
        std::string folder = ::testing::TempDir() + "faultfs-XXXXXX";
        folder_ = ::mkdtemp(folder.data());
        std::filesystem::create_directories(source() / "backups");
        std::filesystem::create_directory(folder_ / "mount");
        fs_.emplace(source(), folder_ / "mount");
    }

    ~FaultfsTest() override
    {
        EXPECT_EQ(fs().end(), 0);
        std::filesystem::remove_all(folder_);
    }

    FaultMount& fs() { return *fs_; }
    std::filesystem::path source() const { return folder_ / "source"; }
    std::filesystem::path mounted(const std::string& name) { return fs().path() / name; }

private:
    std::filesystem::path folder_;
    std::optional<FaultMount> fs_;
};

} // namespace faultfs

#endif
