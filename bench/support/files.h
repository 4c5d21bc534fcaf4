// The benchmarks' files. All are in memory.
#ifndef IXFS_BENCH_FILES_H
#define IXFS_BENCH_FILES_H

#include <string>

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
