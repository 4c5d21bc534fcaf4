#include "descriptor_copy.h"

#include "begins_with.h"
#include "bounded_text.h"
#include "control.h"
#include "descriptor_file.h"
#include "file_status.h"
#include "ixfs_uuid.h"
#include "log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>

namespace
{

constexpr std::string_view extent_key = "RW ";
constexpr std::string_view uuid_key = "ddb.uuid ";

// std::string_view::find takes twice as long.
bool holds(std::string_view text, std::string_view key)
{
    return memmem(text.data(), text.size(), key.data(), key.size()) != nullptr;
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

// Mostly the file is new, and no look at it is needed: that saves a tenth of a short copy.
OpenFile create_or_overwrite(const char* path)
{
    constexpr int to_write = O_WRONLY | O_CREAT | O_CLOEXEC;
    constexpr mode_t mode = 0666; // less the umask
    OpenFile file(open(path, to_write | O_EXCL, mode));
    const bool may_be_there = errno == EEXIST || errno == EISDIR; // EISDIR: it ends in a slash
    if (file.is_open() || !may_be_there || !break_hard_link(path))
        return file;
    return OpenFile(open(path, to_write | O_TRUNC, mode));
}

// Opens what the caller of _ixfs_copy_desc names.
class FilesByPath final : public DescriptorFiles
{
public:
    FilesByPath(const char* old_path, const char* new_path)
        : old_path_(old_path), new_path_(new_path)
    {
    }

    OldDescriptor open_old() override
    {
        return {OpenFile(open(old_path_, O_RDONLY | O_CLOEXEC)), std::nullopt};
    }

    OpenFile open_new() override { return create_or_overwrite(new_path_); }

private:
    const char* old_path_;
    const char* new_path_;
};

// Copies a descriptor line by line.
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
        std::string_view lines;
        bool extent_is_usable = true;
        while (extent_is_usable && old_file_.next(lines))
            extent_is_usable = copy_lines(lines);
        const bool all_read = old_file_.error() == 0;
        if (!extent_is_done_)
            log_.error("ERR - failed to find and alter RW tag?!?\n");
        else if (!all_read)
            log_.error("ERR - error reading old file - %d\n", old_file_.error());
        return all_read && extent_is_done_;
    }

private:
    // Lines that stay as they are are written together, straight from where they were read. That
    // makes a long descriptor's copy twice as fast. Returns what copy_line returns.
    bool copy_lines(std::string_view lines)
    {
        const bool has_nul = lines.find('\0') != std::string_view::npos;
        if (!has_nul && !may_be_rewritten(lines)) {
            new_file_.write(lines);
            return true;
        }
        std::string_view unchanged = lines.substr(0, 0); // not written yet
        while (!lines.empty()) {
            const std::string_view line = take_line(lines);
            const std::string_view text = has_nul ? line.substr(0, line.find('\0')) : line;
            if (text.size() == line.size() && !is_rewritten(line)) {
                unchanged = {unchanged.data(), unchanged.size() + line.size()};
                continue;
            }
            new_file_.write(unchanged);
            unchanged = lines.substr(0, 0);
            if (!copy_line(text))
                return false;
        }
        new_file_.write(unchanged);
        return true;
    }

    bool may_be_rewritten(std::string_view lines) const
    {
        return (!extent_is_done_ && holds(lines, extent_key)) ||
               (wants_new_uuid_ && holds(lines, uuid_key));
    }
    bool is_extent(std::string_view line) const
    {
        return !extent_is_done_ && begins_with(line, extent_key);
    }
    bool is_old_uuid(std::string_view line) const
    {
        return wants_new_uuid_ && begins_with(line, uuid_key);
    }
    bool is_rewritten(std::string_view line) const { return is_extent(line) || is_old_uuid(line); }

    // Returns false at an extent line that names no VMFS file; nothing behind it is of use.
    bool copy_line(std::string_view line)
    {
        if (is_extent(line))
            return rewrite_extent(line);
        if (is_old_uuid(line))
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
                    const char* extent_name, DescriptorFiles& files)
{
    const Log log(handle, "_ixfs_copy_desc()");
    OldDescriptor old_opened = files.open_old();
    if (!old_opened.file.is_open()) {
        log.error("ERR - can't open old %s, err %d\n", old_path, errno);
        return 0;
    }
    OpenFile new_opened = files.open_new();
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
    FilesByPath files(old_path, new_path);
    return copy_descriptor(handle, old_path, new_path, extent_name, files);
}
