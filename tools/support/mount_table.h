// What is mounted in this process's mount namespace.
#ifndef IXFS_TOOLS_MOUNT_TABLE_H
#define IXFS_TOOLS_MOUNT_TABLE_H

#include <string>
#include <sys/types.h>
#include <vector>

struct Mount {
    int id;             // the kernel's number; given again once the mount is gone
    int parent;         // the mount that it is mounted on
    std::string device; // of the file system: "0:52"
    std::string point;  // where, without the kernel's escapes; a deleted folder ends in "//deleted"
    std::string type;
    std::string source;
};

// All mounts, in the kernel's order: of two on one point the later one is on top. Throws
// std::system_error.
std::vector<Mount> read_mount_table();

// Those of another process, as it sees them; none if it is gone, or this user may not know.
std::vector<Mount> mount_table_of(pid_t pid);

// A path as the mount table has it: without symbolic links, as far as it exists.
std::string real_path(const std::string& path);

// Whether `path` is `folder` or lies below it; both absolute and without a "/" at their ends.
bool is_at_or_below(const std::string& path, const std::string& folder);

#endif
