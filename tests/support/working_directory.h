// A working directory for as long as the object lives.
#ifndef IXFS_TESTS_WORKING_DIRECTORY_H
#define IXFS_TESTS_WORKING_DIRECTORY_H

#include <filesystem>
#include <string>

class WorkingDirectory
{
public:
    explicit WorkingDirectory(const std::string& path) { std::filesystem::current_path(path); }
    ~WorkingDirectory() { std::filesystem::current_path(before_); }
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;

private:
    std::filesystem::path before_ = std::filesystem::current_path();
};

#endif
