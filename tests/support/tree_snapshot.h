// What a folder holds, and whether it still does.
#ifndef IXFS_TESTS_TREE_SNAPSHOT_H
#define IXFS_TESTS_TREE_SNAPSHOT_H

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

std::string bytes_of(const std::string& file);

// A description of each thing below a folder, by its path relative to that.
using TreeDescription = std::map<std::string, std::string>;

TreeDescription
describe_tree(const std::string& root,
              const std::function<std::string(const std::filesystem::directory_entry&)>& describe);

// The paths, sorted, of what has come, gone or changed from one description to the other.
std::vector<std::string> changed_paths(const TreeDescription& before, const TreeDescription& now);

// Remembers what lies below a folder: names, kinds, permissions, bytes.
class TreeSnapshot
{
public:
    explicit TreeSnapshot(std::string root);

    // The paths, relative to the folder and sorted, of what has come, gone or changed since.
    std::vector<std::string> changes() const;

private:
    std::string root_;
    TreeDescription description_;
};

#endif
