// Which mounts a preparation's helper makes.
#ifndef IXFS_PREPARE_MOUNT_WATCH_H
#define IXFS_PREPARE_MOUNT_WATCH_H

#include "records.h"

#include <string>
#include <string_view>
#include <vector>

// Reads the mount table at the log lines that the library writes while it holds the mount mutex.
// Nobody else mounts then, so what comes is this helper's. Later the kernel's numbers alone would
// prove nothing: it gives those of a mount that is gone to the next one.
class MountWatch
{
public:
    explicit MountWatch(const std::string& server);

    // Looks at a line. Returns whether own() has changed. Throws what read_mount_table throws.
    bool take(std::string_view tag, std::string_view message);

    const OwnMounts& own() const { return own_; }

private:
    enum class Stage { before_helper, mounting, mounted, unmounting };

    bool take_mount_line(std::string_view message);
    void add_folder_of(std::string_view message);
    void look_for_new();
    void begin_unmount();
    void look_for_gone();
    std::vector<Mount> mounts_in_folders() const;

    Stage stage_ = Stage::before_helper;
    std::vector<Mount> before_; // all that was mounted anywhere
    OwnMounts own_;
    std::vector<Mount> before_unmount_; // in the folders
    std::vector<Mount> made_before_unmount_;
};

// Of `mounts` those that are among `others`, or are not.
std::vector<Mount> kept(const std::vector<Mount>& mounts, const std::vector<Mount>& others);
std::vector<Mount> without(const std::vector<Mount>& mounts, const std::vector<Mount>& others);

// Those at or below any of the folders.
std::vector<Mount> in_folders(const std::vector<Mount>& mounts,
                              const std::vector<std::string>& folders);

#endif
