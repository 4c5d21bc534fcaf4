// The mount table: what the kernel tells of this thread's mounts in /proc.
#ifndef IXFS_MOUNT_TABLE_H
#define IXFS_MOUNT_TABLE_H

#include <optional>
#include <string>
#include <vector>

// Returns the kernel's number of the mount that an open file or directory lies in, or nothing if it
// cannot be had. Logs nothing.
std::optional<int> mount_id(int descriptor);

// Whether an open directory is the topmost one, which nothing contains.
bool is_top(int directory);

// The mounts that appeared while something ran.
class AppearedMounts
{
public:
    // Not known: any directory may lie in one.
    AppearedMounts() = default;
    explicit AppearedMounts(std::vector<int> ids) : ids_(std::move(ids)), known_(true) {}

    // Whether an open directory lies in one of these mounts, or it cannot be told. A directory that
    // is open keeps its mount, so the mount is still there.
    bool may_hold(int directory) const;

private:
    std::vector<int> ids_; // the kernel's numbers
    bool known_ = false;
};

// All mounts at the time when the object is made.
class MountTable
{
public:
    MountTable() noexcept;

    // Returns the mounts that `earlier` lacks, and all that lie below the folder `base`: the kernel
    // gives a number again once its mount is gone, so a mount that took another's place can look
    // like that one. Nothing is known if a table could not be read or memory is short.
    AppearedMounts since(const MountTable& earlier, const char* base) const noexcept;

private:
    std::string text_; // empty if the table could not be read
};

#endif
