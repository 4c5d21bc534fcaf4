// A file in memory that the library can open by its path.
#ifndef IXFS_FUZZ_MEMORY_FILE_H
#define IXFS_FUZZ_MEMORY_FILE_H

#include <string>

// Throws std::system_error where a call fails.
class MemoryFile
{
public:
    MemoryFile();
    ~MemoryFile();
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    // Valid in this process.
    const std::string& path() const { return path_; }

    // Replaces the content.
    void write(const std::string& bytes) const;
    std::string read() const;

private:
    int descriptor_;
    std::string path_;
};

#endif
