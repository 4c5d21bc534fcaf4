// The mount table: what the kernel tells of this thread's mounts in /proc.
#ifndef IXFS_MOUNT_TABLE_H
#define IXFS_MOUNT_TABLE_H

#include <optional>
#include <string>

// Returns the kernel's number of the mount that an open file or directory lies in, or nothing if it
// cannot be had. Logs nothing.
std::optional<int> mount_id(int descriptor);

// Whether an open directory is the topmost one, which nothing contains.
bool is_top(int directory);

// All mounts at one time, to be compared with those of a later one. Comparing is left until
// something is to be deleted, which few unmounts do: a second table after each mount took a mount
// and its unmount 50 us.
class MountTable
{
public:
    // Reads the mounts of now. If that fails, nothing is known.
    void read() noexcept;

    // Whether an open directory lies in a mount that the table lacks, or in one that lies below the
    // folder `base`: the kernel gives a number again once its mount is gone, so a mount that took
    // another's place can look like that one. Also true if the mount was taken away since the
    // directory was opened, or if it cannot be told: a table could not be read, or memory is short.
    bool may_lack_mount_of(int directory, const char* base) const noexcept;

private:
    std::string text_; // empty if nothing is known
};

#endif
