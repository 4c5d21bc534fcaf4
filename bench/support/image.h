// An image in memory, of as many disks as wanted, that the helper of the benchmarks "mounts".
#ifndef IXFS_BENCH_IMAGE_H
#define IXFS_BENCH_IMAGE_H

#include "files.h"

#include <ixfs_vmir.h>

#include <string>
#include <vector>

// A disk descriptor as real ones are, of about 20 lines, whose extent line names this file.
std::string descriptor_text(const std::string& extent_name);

class Image
{
public:
    // Makes the image's files. `server` and `client` tell it from others.
    Image(const std::string& server, int disks, const std::string& configuration = "<vm/>\n",
          const std::string& client = "bench-client");

    MountCreds creds() const;

    // The disks, as instant recovery names them.
    const std::vector<std::string>& entries() const { return entries_; }

    // The disks' names without their endings.
    const std::vector<std::string>& disks() const { return disks_; }

    // Absolute paths: where the disks are, where their view comes to be, the configuration.
    std::string disk_folder() const { return root_.path() + "/" + folder_ + "/vm1"; }
    std::string view_folder() const { return root_.path() + "/" + folder_ + "/_vmir"; }
    std::string configuration_file() const;

    // Where the helper mounts the image.
    const std::string& mount_point() const { return root_.path(); }

    // Removes the view folder with all that is in it, if it is there.
    void remove_view() const;

private:
    std::string server_;
    std::string backup_id_;
    WorkFolder root_;
    std::string folder_; // below the root
    std::vector<std::string> disks_;
    std::vector<std::string> entries_;
};

#endif
