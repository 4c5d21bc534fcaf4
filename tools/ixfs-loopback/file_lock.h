// A lock that ends with its holder, however that ends.
#ifndef IXFS_LOOPBACK_FILE_LOCK_H
#define IXFS_LOOPBACK_FILE_LOCK_H

#include <filesystem>

// An exclusive lock on a file, for as long as the object lives.
class FileLock
{
public:
    // `open_flags` and `lock_operation` as for open(2) and flock(2). Throws std::system_error for
    // any failure but a missing file and a lock that another process holds.
    FileLock(const std::filesystem::path& file, int open_flags, int lock_operation);
    ~FileLock();
    FileLock(const FileLock&) = delete;
    FileLock& operator=(const FileLock&) = delete;

    bool held() const { return held_; }
    int descriptor() const { return descriptor_; }

private:
    int descriptor_;
    bool held_ = false;
};

#endif
