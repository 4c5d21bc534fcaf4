// An image that a few lines of text describe, such as
//
//     disk vm/a
//     link _vmir/a.vmdk ../../../../../../outside/secret
//     fifo ^^.^VIRTUAL_FILE_FSMAP
//
// It begins as an ordinary one, with the disks "vm/a", "vm/b" and "vm1/a". Lines that make no
// sense, or that fail, do nothing.
#ifndef IXFS_FUZZ_IMAGE_BUILDER_H
#define IXFS_FUZZ_IMAGE_BUILDER_H

#include <string>
#include <vector>

class ImageBuilder
{
public:
    // root     of the image; anew for each image
    // outside  what links may lead to beside the image
    ImageBuilder(std::string root, std::string outside);

    // Builds it. What it had before is gone.
    void build(const std::vector<std::string>& lines);

    // What the lines ask for beside files.
    const std::vector<std::string>& disks() const { return disks_; } // in datastore form
    bool twice() const { return twice_; }
    bool new_disk_uuids() const { return new_disk_uuids_; }

private:
    struct Place;

    void build_ordinary() const;
    void follow(const std::string& line);
    void put(const std::string& kind, const std::string& name, const std::string& rest) const;
    void link(const Place& place, const std::string& target) const;

    const std::string root_;
    const std::string outside_;
    std::vector<std::string> disks_;
    bool twice_ = false;
    bool new_disk_uuids_ = false;
};

#endif
