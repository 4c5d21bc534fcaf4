// The benchmarks' files. All are in memory.
#ifndef IXFS_BENCH_FILES_H
#define IXFS_BENCH_FILES_H

#include <string>

// Puts a file system in memory where the work folders are made. It forbids devices, as FUSE's
// mounts mostly do. Returns whether it is there. Call this before any work folder is made.
bool mount_work_folders();

// A folder in which devices may be opened, for as long as the object lives.
class FolderWithDevices
{
public:
    explicit FolderWithDevices(std::string folder);
    FolderWithDevices(const FolderWithDevices&) = delete;
    FolderWithDevices& operator=(const FolderWithDevices&) = delete;
    ~FolderWithDevices();

private:
    std::string folder_;
};

// A folder for one benchmark's files; it ends with its owner, and its files with it.
class WorkFolder
{
public:
    explicit WorkFolder(const std::string& name);
    WorkFolder(const WorkFolder&) = delete;
    WorkFolder& operator=(const WorkFolder&) = delete;
    ~WorkFolder();

    // Absolute.
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

void write_file(const std::string& path, const std::string& content);
std::string read_file(const std::string& path);

#endif
