#include "descriptor_copy.h"

#include "bounded_text.h"
#include "control.h"
#include "descriptor_file.h"
#include "file_status.h"
#include "ixfs_uuid.h"
#include "log.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>

namespace
{

bool begins_with(std::string_view line, std::string_view prefix)
{
    return line.substr(0, prefix.size()) == prefix;
}

// Returns true also when the look fails for another reason than that there is nothing.
bool may_be_one_of_several_hard_links(const char* path)
{
    const FileStatus status = status_of(AT_FDCWD, path);
    return status ? is_regular(*status) && status->st_nlink > 1 : errno != ENOENT;
}

// Writing to one of several hard links would change the file under its other names too, and one of
// those may be a disk's data in the backup. So such a name is taken away first.
bool break_hard_link(const char* path)
{
    return !may_be_one_of_several_hard_links(path) || unlink(path) == 0 || errno == ENOENT;
}

OpenFile create_or_overwrite(const char* path)
{
    constexpr mode_t mode = 0666; // less the umask
    if (!break_hard_link(path))
        return {};
    return OpenFile(open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode));
}

// Copies a descriptor line by line, a line longer than the buffer in pieces that each count as a
// line.
class DescriptorCopy
{
public:
    DescriptorCopy(const Log& log, LineReader& old_file, BlockWriter& new_file,
                   const char* extent_name, bool wants_new_uuid)
        : log_(log), old_file_(old_file), new_file_(new_file), wants_new_uuid_(wants_new_uuid)
    {
        std::snprintf(extent_name_, sizeof(extent_name_), "%s", extent_name);
    }

    // Returns whether all was read and the extent line rewritten. Errors of the new file show when
    // it is flushed.
    bool run()
    {
        std::string_view line;
        bool extent_is_usable = true;
        while (extent_is_usable && old_file_.next(line))
            extent_is_usable = copy_line(line.substr(0, line.find('\0')));
        const bool all_read = old_file_.error() == 0;
        if (!extent_is_done_)
            log_.error("ERR - failed to find and alter RW tag?!?\n");
        else if (!all_read)
            log_.error("ERR - error reading old file - %d\n", old_file_.error());
        return all_read && extent_is_done_;
    }

private:
    // Returns false at an extent line that names no VMFS file; nothing behind it is of use.
    bool copy_line(std::string_view line)
    {
        if (!extent_is_done_ && begins_with(line, "RW "))
            return rewrite_extent(line);
        if (wants_new_uuid_ && begins_with(line, "ddb.uuid "))
            write_new_uuid();
        else
            new_file_.write(line);
        return true;
    }

    bool rewrite_extent(std::string_view line)
    {
        const std::size_t keyword = line.find(" VMFS ");
        if (keyword == std::string_view::npos) {
            log_.error("ERR - didn't find VMFS keyword\n");
            return false;
        }
        new_file_.write(line.substr(0, keyword));
        new_file_.write(" VMFS \"");
        new_file_.write(extent_name_);
        new_file_.write("\"\r\n");
        log_.info("INF - New extent description: %s\n", extent_name_);
        extent_is_done_ = true;
        return true;
    }

    void write_new_uuid()
    {
        const std::string uuid = getVmdkUuid();
        new_file_.write("ddb.uuid = \"");
        new_file_.write(uuid);
        new_file_.write("\"\r\n");
        log_.info("INF - New uuid: %s\n", uuid.c_str());
    }

    const Log& log_;
    LineReader& old_file_;
    BlockWriter& new_file_;
    char extent_name_[text_size];
    bool wants_new_uuid_;
    bool extent_is_done_ = false;
};

bool flush(const Log& log, BlockWriter& new_file)
{
    const int error = new_file.flush();
    if (error != 0)
        log.error("ERR - error writing new file - %d\n", error);
    return error == 0;
}

} // namespace

int copy_descriptor(_ixfs_control_t* handle, const char* old_path, const char* new_path,
                    const char* extent_name, const std::function<OldDescriptor()>& open_old,
                    const std::function<OpenFile()>& open_new)
{
    const Log log(handle, "_ixfs_copy_desc()");
    OldDescriptor old_opened = open_old();
    if (!old_opened.file.is_open()) {
        log.error("ERR - can't open old %s, err %d\n", old_path, errno);
        return 0;
    }
    OpenFile new_opened = open_new();
    if (!new_opened.is_open()) {
        log.error("ERR - can't open new %s, err %d\n", new_path, errno);
        return 0;
    }
    LineReader old_file(std::move(old_opened.file), old_opened.size);
    BlockWriter new_file(std::move(new_opened));
    const bool wants_new_uuid = (handle->flags & IXFS_FLAG_NEW_DISK_UUID) != 0;
    const bool copied = DescriptorCopy(log, old_file, new_file, extent_name, wants_new_uuid).run();
    old_file.close();
    const bool written = flush(log, new_file);
    return copied && written;
}

int _ixfs_copy_desc(_ixfs_control_t* handle, const char* old_path, const char* new_path,
                    const char* extent_name)
{
    return copy_descriptor(
        handle, old_path, new_path, extent_name,
        [old_path] {
            return OldDescriptor{OpenFile(open(old_path, O_RDONLY | O_CLOEXEC)), std::nullopt};
        },
        [new_path] { return create_or_overwrite(new_path); });
}
