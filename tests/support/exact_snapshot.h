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
        host,  // everything: also inode, number of links, all times but that of reading
        whole, // of an image that is refused: the same, but for the time of status changes
        backup // of an image that is prepared: all but view folders, links and folders' times
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
