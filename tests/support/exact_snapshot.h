// What lies below a folder, to the last bit that a system call could have changed.
#ifndef IXFS_TESTS_EXACT_SNAPSHOT_H
#define IXFS_TESTS_EXACT_SNAPSHOT_H

#include "tree_snapshot.h"

#include <string>
#include <vector>

class ExactSnapshot
{
public:
    enum class Of {
        strangers, // everything: also inode, number of links, all times but that of reading
        whole,     // what a call that changes nothing leaves: as above, but for the time of changes
        backup     // what a preparation leaves: all but its view folder, links and folders' times
    };

    ExactSnapshot(std::string root, Of what);

    // The paths, relative to the folder and sorted, of what has come, gone or changed since.
    std::vector<std::string> changes() const;

private:
    TreeDescription describe() const;

    std::string root_;
    Of what_;
    TreeDescription description_;
};

#endif
