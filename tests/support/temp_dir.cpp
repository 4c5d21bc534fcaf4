#include "temp_dir.h"

#include "interpose.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <system_error>

TempDir::TempDir() : path_(testing::TempDir() + "ixfs-XXXXXX")
{
    if (mkdtemp(path_.data()) == nullptr)
        throw std::system_error(errno, std::generic_category(), path_);
}

TempDir::~TempDir()
{
    std::error_code error;
    std::filesystem::remove_all(path_, error);
    EXPECT_FALSE(error) << path_ << ": " << error.message();
}

void TempDir::make_folder(const std::string& name) const
{
    const interpose::RealCalls of_the_test;
    std::filesystem::create_directories(*this / name);
}

void TempDir::write(const std::string& name, const std::string& bytes) const
{
    const interpose::RealCalls of_the_test;
    std::ofstream file(*this / name, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file << bytes << std::flush;
}

std::string TempDir::read(const std::string& name) const
{
    const interpose::RealCalls of_the_test;
    std::ifstream file(*this / name, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    std::string bytes(std::filesystem::file_size(*this / name), '\0');
    file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

bool TempDir::exists(const std::string& name) const
{
    const interpose::RealCalls of_the_test;
    return std::filesystem::exists(std::filesystem::symlink_status(*this / name));
}
