// The directories below the mount base, and what is mounted on them.
#ifndef IXFSCTL_MOUNT_DIRECTORIES_H
#define IXFSCTL_MOUNT_DIRECTORIES_H

#include "mount_table.h"

#include <ctime>
#include <optional>
#include <string>
#include <vector>

// What a look for the mount's "backups" comes to.
enum class Backups { not_looked_for, found, missing, failed, no_answer };

struct MountDirectory {
    std::string path;
    std::string server;        // its path below the mount base
    bool is_directory;         // false for a symbolic link or a file in its place
    bool holds_files;          // of its own, if nothing is mounted on it; other than directories
    std::vector<Mount> layers; // what is mounted on it, the topmost last
    std::optional<std::time_t> made; // when the directory was; nothing mounted on it is older
    Backups backups;
    int error; // of a look that failed
};

// All of them, by their paths. Of directories without a mount those that hold no others or hold a
// file, and what is in place of one. Opens nothing that is mounted there. Throws std::system_error
// if the mount table or the mount base cannot be read.
std::vector<MountDirectory> find_mount_directories();

// Looks for "backups" in each that has a mount, all at once and for a second at most: child
// processes look, and those that hang are left behind. Where one of an earlier run still hangs, none
// looks.
void look_for_backups(std::vector<MountDirectory>& directories);

// Whether a look for "backups" in a folder comes to anything within a second.
bool answers(const std::string& folder);

#endif
