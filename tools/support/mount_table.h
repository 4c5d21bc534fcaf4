// What is mounted in this process's mount namespace.
#ifndef IXFS_TOOLS_MOUNT_TABLE_H
#define IXFS_TOOLS_MOUNT_TABLE_H

#include <string>
#include <vector>

struct Mount {
    int id;            // the kernel's number; given again once the mount is gone
    int parent;        // the mount that it is mounted on
    std::string point; // where, without the kernel's escapes; a deleted folder ends in "//deleted"
    std::string type;
    std::string source;
};

// All mounts, in the kernel's order: of two on one point the later one is on top. Throws
// std::system_error.
std::vector<Mount> read_mount_table();

// Whether `path` is `folder` or lies below it; both absolute and without a "/" at their ends.
bool is_at_or_below(const std::string& path, const std::string& folder);

#endif
