#include "image.h"

#include "beneath.h"
#include "image_layout.h"
#include "path_text.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <utility>

namespace
{

constexpr int as_folder = O_PATH | O_DIRECTORY | O_CLOEXEC;

// Disks mostly share a folder, or lie in a few. If there are more, the first are closed, and opened
// again when they are needed.
constexpr std::size_t most_open_folders = 4;

// Nobody has this many folders one below the other.
constexpr int most_levels = 10000;

OpenFile open_below(const OpenFile& root, const std::string& path, Links links)
{
    return open_beneath(root.descriptor(), path.empty() ? "." : path.c_str(), as_folder, links);
}

} // namespace

ImageFile::ImageFile(const LmfString& mount_point, const LmfString& relative_path)
    : path_(joined_path(mount_point.text().c_str(), relative_path.text().c_str())),
      relative_(path_.size() - std::strlen(relative_path.text().c_str())),
      name_(std::max(relative_, path_.rfind('/') + 1))
{
}

Image::Image(const char* mount_point) : mount_point_(default_narrow(mount_point)) {}

// The helper reported the mount point's own path, and it is trusted: links on it are followed.
bool Image::open_root()
{
    if (!root_.is_open())
        root_ = OpenFile(open(mount_point_.text().c_str(), as_folder));
    return root_.is_open();
}

const ImageFolder* Image::folder(std::string_view path)
{
    for (const ImageFolder& folder : folders_) {
        if (folder.path == path)
            return &folder;
    }
    if (!open_root())
        return nullptr;
    ImageFolder folder{std::string(path), {}, false, Devices::may_be_opened};
    // Without links first: so it is known whether there are any.
    folder.open = open_below(root_, folder.path, Links::none);
    folder.through_link = !folder.open.is_open() && errno == ELOOP;
    if (folder.through_link)
        folder.open = open_below(root_, folder.path, Links::that_stay_below);
    if (!folder.open.is_open())
        return nullptr;
    folder.devices = devices_in(folder.open.descriptor());
    folders_.push_front(std::move(folder));
    if (folders_.size() > most_open_folders)
        folders_.pop_back();
    return &folders_.front();
}

OpenFile Image::open_folder(const ImageFile& place)
{
    const ImageFolder* const in = folder(place.folder());
    return OpenFile(
        in != nullptr ? openat(in->open.descriptor(), place.name(), as_folder | O_NOFOLLOW) : -1);
}

int Image::access(const ImageFile& file)
{
    const ImageFolder* const in = folder(file.folder());
    if (in == nullptr)
        return errno == EXDEV ? 0 : -1; // EXDEV: a link leads out
    return readable(in->open.descriptor(), file.name());
}

RegularFile Image::open_for_reading(const ImageFile& file)
{
    const ImageFolder* const in = folder(file.folder());
    if (in == nullptr)
        return {};
    RegularFile opened = open_regular_file(in->open.descriptor(), file.name(), in->devices);
    if (opened.file.is_open() || errno != ELOOP)
        return opened;
    const std::string path = in->path.empty() ? file.name() : in->path + '/' + file.name();
    return open_regular_file_beneath(root_.descriptor(), path.c_str());
}

int Image::make_folder(const ImageFile& place, mode_t mode)
{
    const ImageFolder* const in = folder(place.folder());
    return in != nullptr ? mkdirat(in->open.descriptor(), place.name(), mode) : -1;
}

void Image::close()
{
    folders_.clear();
    root_.close();
}

bool Image::lies_in(const ImageFolder& folder, const OpenFile& other)
{
    const FileStatus wanted = status_of(other.descriptor());
    const FileStatus end = status_of(root_.descriptor());
    OpenFile above(openat(folder.open.descriptor(), ".", as_folder));
    for (int level = 0; above.is_open() && level < most_levels; ++level) {
        const FileStatus here = status_of(above.descriptor());
        if (is_same_file(here, wanted))
            return true;
        if (!here || is_same_file(here, end))
            break;
        above = OpenFile(openat(above.descriptor(), "..", as_folder));
    }
    return false;
}
