// The names that the kernel knows, each under the number that it was told with.
#ifndef FAULTFS_NODES_H
#define FAULTFS_NODES_H

#include <cstdint>
#include <string>
#include <unordered_map>

#include <fuse_lowlevel.h>

namespace faultfs
{

// The last component's path within a folder's.
std::string join(const std::string& folder, const std::string& name);

// A number stands for a name, not for an inode: hard links have a number each, so a rule on one of
// them leaves the others alone. No number is given twice.
class Nodes
{
public:
    const std::string& path(fuse_ino_t node) const { return nodes_.at(node).path; }
    std::string child(fuse_ino_t folder, const char* name) const;

    // The number to tell the kernel a path with; it is kept until the kernel has forgotten it as
    // often as it was told.
    fuse_ino_t tell(const std::string& path);
    void forget(fuse_ino_t node, std::uint64_t times);

    // The path, and all below, no longer is what it was: a later file of that name is another.
    void remove(const std::string& path);
    void rename(const std::string& from, const std::string& to);

    // Notes that the kernel drops a name, with all below, from its cache of names. Returns whether
    // the name was there.
    bool drop(const std::string& path);

private:
    struct Node {
        std::string path;
        std::uint64_t told = 0;
        bool cached = false;
    };

    std::unordered_map<fuse_ino_t, Node> nodes_{{FUSE_ROOT_ID, {"/"}}};
    std::unordered_map<std::string, fuse_ino_t> numbers_;
    fuse_ino_t last_ = FUSE_ROOT_ID;
};

} // namespace faultfs

#endif
