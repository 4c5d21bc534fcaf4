#include "copy_or_link.h"

#include "descriptor_copy.h"
#include "etime_retry.h"
#include "file_status.h"
#include "files.h"
#include "log.h"

#include <fcntl.h>

namespace
{

bool source_exists(OpenView& view, const ImageFile& source)
{
    const int result = call_again_on_etime([&] { return view.image().access(source); });
    return report_access(view.handle(), source.path(), result);
}

bool destination_exists(OpenView& view, const ImageFile& destination)
{
    const int result = call_again_on_etime([&] {
        if (!view.open())
            return -1;
        return readable(view.folder(), destination.name());
    });
    return report_access(view.handle(), destination.path(), result);
}

ec_status reuse(const Log& log, const ImageFile& destination)
{
    log.info("INF - File already exists, reusing: %s\n", destination.path());
    return EC_OK;
}

// ---- Data files ---------------------------------------------------------------------------------

// Returns 0 or an error number. Only a regular file gets into the view. The kernel would link
// symbolic links and devices, too. It refuses folders with EPERM; that becomes another error,
// because link_file takes EPERM as success.
int link_regular_file(const ImageFolder& folder, const ImageFile& source, const OpenView& view,
                      const ImageFile& destination)
{
    const char* const from = source.name();
    const char* const to = destination.name();
    const int source_folder = folder.open.descriptor();
    if (linkat(source_folder, from, view.folder(), to, 0) != 0) {
        const int error = errno;
        const FileStatus refused = error == EPERM ? status_of(source_folder, from) : std::nullopt;
        return refused && !is_regular(*refused) ? error_of_type(*refused) : error;
    }
    const FileStatus linked = status_of(view.folder(), to);
    if (!linked || is_regular(*linked))
        return 0;
    unlinkat(view.folder(), to, 0);
    return error_of_type(*linked);
}

// Returns where a source lies, with the view open, too; or null, and errno is set.
const ImageFolder* open_both(OpenView& view, const ImageFile& source)
{
    return view.open() ? view.image().folder(source.folder()) : nullptr;
}

bool links_the_same(OpenView& view, const ImageFile& source, const ImageFile& destination)
{
    const ImageFolder* const folder = open_both(view, source);
    return folder != nullptr && is_same_file(status_of(folder->open.descriptor(), source.name()),
                                             status_of(view.folder(), destination.name()));
}

// A link that was not there when the disks were checked may be that of another preparation, which
// has the disks in another order.
bool is_right_link(OpenView& view, const ImageFile& source, const ImageFile& destination)
{
    return view.is_checked_link(destination.name()) || links_the_same(view, source, destination);
}

// A link that another process made since it was found missing is as good as one's own: both prepare
// the same image. Failing would remove the view folder with the other's disks.
ec_status link_file(OpenView& view, const Log& log, const ImageFile& source,
                    const ImageFile& destination)
{
    constexpr ec_status failed = EC_SYSTEM_ERROR;
    const ImageFolder* const from = open_both(view, source);
    const int error = from != nullptr ? link_regular_file(*from, source, view, destination) : errno;
    const int result = report_link(view.handle(), source.path(), destination.path(), error);
    if (result == EEXIST && links_the_same(view, source, destination))
        return reuse(log, destination);
    if (result != 1) { // 1: success or EPERM, as of _ixfs_create_hard_link
        log.error("ERR - Could not create link for %s, error %d\n", destination.path(), failed);
        return failed;
    }
    log.info("INF - Created link file: %s\n", destination.path());
    return EC_OK;
}

// ---- Descriptors --------------------------------------------------------------------------------

// A descriptor is text of a few kilobytes. One of more than this would be read for minutes, if it
// is sparse, and for hours, if not.
constexpr off_t largest_descriptor = off_t{1} << 36; // bytes

OldDescriptor open_descriptor(Image& image, const ImageFile& source)
{
    RegularFile opened = image.open_for_reading(source);
    if (opened.file.is_open() && opened.status.st_size > largest_descriptor) {
        errno = EFBIG;
        return {};
    }
    return {std::move(opened.file), opened.status.st_size};
}

// Makes a new file, and takes away what has its name: writing into that might change another file
// of the backup, or one of the host. Gives up when somebody puts something there again each time.
OpenFile make_new(OpenView& view, const char* name, bool is_there)
{
    if (!view.open())
        return {};
    constexpr mode_t mode = 0666; // less the umask
    constexpr int most_tries = 100;
    for (int tries = 1;; ++tries) {
        if (is_there && unlinkat(view.folder(), name, 0) != 0 && errno != ENOENT)
            return {};
        OpenFile file(openat(view.folder(), name,
                             O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
        is_there = !file.is_open() && errno == EEXIST;
        if (!is_there || tries == most_tries)
            return file;
    }
}

// The descriptor in the image, and its copy in the view.
class FilesOfView final : public DescriptorFiles
{
public:
    FilesOfView(OpenView& view, const ImageFile& source, const ImageFile& destination,
                bool is_there)
        : view_(view), source_(source), destination_(destination), is_there_(is_there)
    {
    }

    OldDescriptor open_old() override { return open_descriptor(view_.image(), source_); }
    OpenFile open_new() override { return make_new(view_, destination_.name(), is_there_); }

private:
    OpenView& view_;
    const ImageFile& source_;
    const ImageFile& destination_;
    bool is_there_;
};

ec_status copy_file(OpenView& view, const Log& log, const ImageFile& source,
                    const ImageFile& destination, bool is_there, const LmfString& extent_name)
{
    constexpr ec_status failed = EC_FILE_NOT_COPIED;
    const char* const from = source.path();
    const char* const to = destination.path();
    FilesOfView files(view, source, destination, is_there);
    const int copied = copy_descriptor(view.handle(), from, to, extent_name.text().c_str(), files);
    if (copied != 1) {
        log.error("ERR - Failed copying Disk Descriptor (%d): from %s to %s\n", failed, from, to);
        return failed;
    }
    log.info("INF - Created new .desc file: %s\n", to);
    log.info("      point to .vmdk link: %s\n", extent_name.utf8_str());
    return EC_OK;
}

} // namespace

bool OpenView::open()
{
    if (!folder_.is_open())
        folder_ = image_.open_folder(place_);
    return folder_.is_open();
}

ec_status copyOrLinkPath(OpenView& view, const LmfString& source, const LmfString& destination,
                         bool makeLink, bool replaceExisting, const LmfString& descExtentName)
{
    const Log log(view.handle(), "copyOrLinkPath");
    const ImageFile from = view.image().file(source);
    const ImageFile to = view.image().file(destination);
    if (!source_exists(view, from)) {
        log.error("ERR - Failed to find source file for copy/link: %s\n", from.path());
        return EC_FILE_NOT_FOUND;
    }
    // Looked at in both cases, so that the log shows whether a descriptor was written over.
    const bool is_there = destination_exists(view, to);
    if (is_there && !replaceExisting && is_right_link(view, from, to))
        return reuse(log, to);
    log.info("INF - makeLink? %d\n", makeLink ? 1 : 0);
    return makeLink ? link_file(view, log, from, to)
                    : copy_file(view, log, from, to, is_there, descExtentName);
}
