// The one door to a mounted image.
#ifndef IXFS_IMAGE_H
#define IXFS_IMAGE_H

#include "ixfs_vmir.h"
#include "regular_file.h"

#include <list>
#include <string>
#include <string_view>

// An open folder of the image.
struct ImageFolder {
    std::string path; // relative to the mount point
    OpenFile open;
    bool through_link; // whether a symbolic link led here
    Devices devices;   // whether one could be opened here
};

// One file of the image: a name in a folder.
class ImageFile
{
public:
    ImageFile(const LmfString& mount_point, const LmfString& relative_path);

    // In full, as the log shows it.
    const char* path() const { return path_.c_str(); }

    // Relative to the mount point.
    std::string_view folder() const
    {
        const std::size_t length = name_ == relative_ ? 0 : name_ - 1 - relative_;
        return std::string_view(path_).substr(relative_, length);
    }

    const char* name() const { return path_.c_str() + name_; }

private:
    std::string path_;
    std::size_t relative_; // where the path relative to the mount point begins
    std::size_t name_;     // where the name begins
};

// A mounted image, of which others write every part. So each file is reached from an open folder,
// and each folder from the open mount point: symbolic links are followed as long as they stay below
// it, and no further.
//
// Folders are opened when they are first needed, and stay open. So does the mount point: it cannot
// be unmounted before this object ends or is closed. One thread at a time. After a failure errno
// says why; nothing is logged. What makes a path may throw std::bad_alloc.
class Image
{
public:
    explicit Image(const char* mount_point);

    ImageFile file(const LmfString& relative_path) const { return {mount_point_, relative_path}; }

    // Returns a folder by its path relative to the mount point, or null. Valid until another is
    // asked for, or close() is called.
    const ImageFolder* folder(std::string_view path);

    // Opens a real folder. A symbolic link is none, wherever it leads (ENOTDIR).
    OpenFile open_folder(const ImageFile& place);

    // Returns 0 if the file is there and this process may read it, else -1. A symbolic link in the
    // file's place is not followed, nor is one on the way that leads out of the image. Both count
    // as a file that is there: nobody waits for it to appear, and the call that opens or links it
    // fails if it must.
    int access(const ImageFile& file);

    // Opens a regular file, also through links that stay below the mount point.
    RegularFile open_for_reading(const ImageFile& file);

    // Makes a folder, as mkdir does.
    int make_folder(const ImageFile& place, mode_t mode);

    // Closes all that is open. What is asked for next is looked for anew.
    void close();

    // Whether `folder` is `other` or lies below it, whatever the paths say. False if that cannot be
    // found out.
    bool lies_in(const ImageFolder& folder, const OpenFile& other);

    const LmfString& mount_point() const { return mount_point_; }

private:
    bool open_root();

    LmfString mount_point_;
    OpenFile root_;
    std::list<ImageFolder> folders_; // the latest first
};

#endif
