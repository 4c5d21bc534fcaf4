#include "bounded_text.h"
#include "control.h"
#include "ixfs_uuid.h"
#include "log.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

bool begins_with(const char* line, const char* prefix)
{
    return std::strncmp(line, prefix, std::strlen(prefix)) == 0;
}

// Returns true also when lstat fails for another reason than that there is nothing.
bool may_be_one_of_several_hard_links(const char* path)
{
    struct stat status {
    };
    if (lstat(path, &status) != 0)
        return errno != ENOENT;
    return S_ISREG(status.st_mode) && status.st_nlink > 1;
}

// Writing to one of several hard links would change the file under its other names too, and one of
// those may be a disk's data in the backup. So such a name is taken away first.
bool break_hard_link(const char* path)
{
    return !may_be_one_of_several_hard_links(path) || unlink(path) == 0 || errno == ENOENT;
}

File open_old(const Log& log, const char* path)
{
    File file(std::fopen(path, "r"));
    if (file == nullptr)
        log.error("ERR - can't open old %s, err %d\n", path, errno);
    return file;
}

File open_new(const Log& log, const char* path)
{
    File file(break_hard_link(path) ? std::fopen(path, "w") : nullptr);
    if (file == nullptr)
        log.error("ERR - can't open new %s, err %d\n", path, errno);
    return file;
}

// Copies a descriptor line by line, a line longer than the buffer in pieces that each count as a
// line.
class DescriptorCopy
{
public:
    DescriptorCopy(const Log& log, FILE* old_file, FILE* new_file, const char* extent_name,
                   bool wants_new_uuid)
        : log_(log), old_file_(old_file), new_file_(new_file), wants_new_uuid_(wants_new_uuid)
    {
        std::snprintf(extent_name_, sizeof(extent_name_), "%s", extent_name);
    }

    // Returns whether all was read and the extent line rewritten. Errors of the new file show when
    // it is flushed.
    bool run()
    {
        char line[text_size];
        bool extent_is_usable = true;
        while (extent_is_usable && std::fgets(line, sizeof(line), old_file_) != nullptr)
            extent_is_usable = copy_line(line);
        const bool all_read = std::ferror(old_file_) == 0;
        if (!extent_is_done_)
            log_.error("ERR - failed to find and alter RW tag?!?\n");
        else if (!all_read)
            log_.error("ERR - error reading old file - %d\n", errno);
        return all_read && extent_is_done_;
    }

private:
    // Returns false at an extent line that names no VMFS file; nothing behind it is of use.
    bool copy_line(char* line)
    {
        if (!extent_is_done_ && begins_with(line, "RW "))
            return rewrite_extent(line);
        if (wants_new_uuid_ && begins_with(line, "ddb.uuid "))
            write_new_uuid();
        else
            std::fputs(line, new_file_);
        return true;
    }

    bool rewrite_extent(char* line)
    {
        char* const keyword = std::strstr(line, " VMFS ");
        if (keyword == nullptr) {
            log_.error("ERR - didn't find VMFS keyword\n");
            return false;
        }
        *keyword = '\0';
        std::fprintf(new_file_, "%s VMFS \"%s\"\r\n", line, extent_name_);
        log_.info("INF - New extent description: %s\n", extent_name_);
        extent_is_done_ = true;
        return true;
    }

    void write_new_uuid()
    {
        const std::string uuid = getVmdkUuid();
        std::fprintf(new_file_, "ddb.uuid = \"%s\"\r\n", uuid.c_str());
        log_.info("INF - New uuid: %s\n", uuid.c_str());
    }

    const Log& log_;
    FILE* old_file_;
    FILE* new_file_;
    char extent_name_[text_size];
    bool wants_new_uuid_;
    bool extent_is_done_ = false;
};

bool flush(const Log& log, FILE* new_file)
{
    std::fflush(new_file);
    if (std::ferror(new_file) == 0)
        return true;
    log.error("ERR - error writing new file - %d\n", errno);
    return false;
}

} // namespace

int _ixfs_copy_desc(_ixfs_control_t* handle, const char* old_path, const char* new_path,
                    const char* extent_name)
{
    const Log log(handle, "_ixfs_copy_desc()");
    File old_file = open_old(log, old_path);
    if (old_file == nullptr)
        return 0;
    const File new_file = open_new(log, new_path);
    if (new_file == nullptr)
        return 0;
    const bool wants_new_uuid = (handle->flags & IXFS_FLAG_NEW_DISK_UUID) != 0;
    DescriptorCopy copy(log, old_file.get(), new_file.get(), extent_name, wants_new_uuid);
    const bool copied = copy.run();
    old_file.reset();
    const bool written = flush(log, new_file.get());
    return copied && written;
}
