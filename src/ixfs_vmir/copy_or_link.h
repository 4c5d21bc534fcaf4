// Making one file of the image visible in its view.
#ifndef IXFS_COPY_OR_LINK_H
#define IXFS_COPY_OR_LINK_H

#include "disk_checks.h"
#include "image.h"

#include <string_view>
#include <utility>

// A view that is being built.
class OpenView
{
public:
    OpenView(_ixfs_control_t* handle, Image& image, const LmfString& view_folder)
        : handle_(handle), image_(image), place_(image.file(view_folder))
    {
    }

    // Opens the view folder, which must be a real one, unless it is open. A slow server may have
    // made it though it did not say so in time; so this is tried again wherever the folder is
    // needed. Sets errno.
    bool open();

    int folder() const { return folder_.descriptor(); }

    // The data links in the view that were found to be right. One that somebody makes meanwhile is
    // looked at when it is met.
    void set_checked_links(LinkNames names) { checked_links_ = std::move(names); }
    bool is_checked_link(std::string_view name) const { return checked_links_.count(name) != 0; }

    _ixfs_control_t* handle() const { return handle_; }
    Image& image() const { return image_; }
    const ImageFile& place() const { return place_; }

private:
    _ixfs_control_t* handle_;
    Image& image_;
    ImageFile place_;
    OpenFile folder_;
    LinkNames checked_links_;
};

// Copies a descriptor, or hard-links a data file, under a new name.
//
//   source           path relative to the mount point
//   destination      the same; lies in the view folder
//   makeLink         link; else copy. The copy is a new file: what has its name is taken away
//   replaceExisting  else an existing destination is kept and is a success
//   descExtentName   for a copy: the data file that the new descriptor names
//
// Returns EC_OK, EC_FILE_NOT_FOUND (no source), EC_SYSTEM_ERROR (link) or EC_FILE_NOT_COPIED, each
// failure after a line with severity IXFS_LOG_ERR. What a failure made stays. Throws
// std::bad_alloc and what drawing a UUID may throw.
ec_status copyOrLinkPath(OpenView& view, const LmfString& source, const LmfString& destination,
                         bool makeLink, bool replaceExisting, const LmfString& descExtentName);

#endif
