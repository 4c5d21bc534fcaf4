// Whether a folder's content is what it was.
#ifndef IXFS_TESTS_TREE_SNAPSHOT_H
#define IXFS_TESTS_TREE_SNAPSHOT_H

#include <map>
#include <string>
#include <vector>

std::string bytes_of(const std::string& file);

// Remembers what lies below a folder: names, kinds, permissions, bytes.
class TreeSnapshot
{
public:
    explicit TreeSnapshot(std::string root);

    // The paths, relative to the folder and sorted, of what has come, gone or changed since.
    std::vector<std::string> changes() const;

private:
    using Entries = std::map<std::string, std::string>; // by relative path

    static Entries entries_below(const std::string& root);

    std::string root_;
    Entries entries_;
};

#endif
