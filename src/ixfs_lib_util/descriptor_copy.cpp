#include "bounded_text.h"
#include "control.h"
#include "ixfs_vmir.h"

#include <cerrno>
#include <cstdio>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr char tag[] = "_ixfs_copy_desc()";

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<FILE, FileCloser>;

bool begins_with(const char* line, const char* prefix)
{
    return std::strncmp(line, prefix, std::strlen(prefix)) == 0;
}

// Also where the file system does not answer.
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

File open_old(_ixfs_control_t* handle, const char* path)
{
    File file(std::fopen(path, "r"));
    if (file == nullptr)
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - can't open old %s, err %d\n", path, errno);
    return file;
}

File open_new(_ixfs_control_t* handle, const char* path)
{
    File file(break_hard_link(path) ? std::fopen(path, "w") : nullptr);
    if (file == nullptr)
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - can't open new %s, err %d\n", path, errno);
    return file;
}

// Copies a descriptor line by line, a line longer than the buffer in pieces that each count as a
// line.
class DescriptorCopy
{
public:
    DescriptorCopy(_ixfs_control_t* handle, FILE* old_file, FILE* new_file, const char* extent_name)
        : handle_(handle), old_file_(old_file), new_file_(new_file)
    {
        strlcpy(extent_name_, extent_name, sizeof(extent_name_));
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
            _ixfs_log(handle_, tag, IXFS_LOG_ERR, "ERR - failed to find and alter RW tag?!?\n");
        else if (!all_read)
            _ixfs_log(handle_, tag, IXFS_LOG_ERR, "ERR - error reading old file - %d\n", errno);
        return all_read && extent_is_done_;
    }

private:
    // Returns false at an extent line that names no VMFS file; nothing behind it is of use.
    bool copy_line(char* line)
    {
        if (!extent_is_done_ && begins_with(line, "RW "))
            return rewrite_extent(line);
        if (wants_new_uuid() && begins_with(line, "ddb.uuid "))
            write_new_uuid();
        else
            std::fputs(line, new_file_);
        return true;
    }

    bool rewrite_extent(char* line)
    {
        char* const keyword = std::strstr(line, " VMFS ");
        if (keyword == nullptr) {
            _ixfs_log(handle_, tag, IXFS_LOG_ERR, "ERR - didn't find VMFS keyword\n");
            return false;
        }
        *keyword = '\0';
        std::fprintf(new_file_, "%s VMFS \"%s\"\r\n", line, extent_name_);
        _ixfs_log(handle_, tag, IXFS_LOG_INF, "INF - New extent description: %s\n", extent_name_);
        extent_is_done_ = true;
        return true;
    }

    bool wants_new_uuid() const { return (handle_->flags & IXFS_FLAG_NEW_DISK_UUID) != 0; }

    void write_new_uuid()
    {
        const std::string uuid = getVmdkUuid();
        std::fprintf(new_file_, "ddb.uuid = \"%s\"\r\n", uuid.c_str());
        _ixfs_log(handle_, tag, IXFS_LOG_INF, "INF - New uuid: %s\n", uuid.c_str());
    }

    _ixfs_control_t* handle_;
    FILE* old_file_;
    FILE* new_file_;
    char extent_name_[text_size];
    bool extent_is_done_ = false;
};

bool flush(_ixfs_control_t* handle, FILE* new_file)
{
    std::fflush(new_file);
    if (std::ferror(new_file) == 0)
        return true;
    _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - error writing new file - %d\n", errno);
    return false;
}

} // namespace

int _ixfs_copy_desc(_ixfs_control_t* handle, const char* old_path, const char* new_path,
                    const char* extent_name)
{
    File old_file = open_old(handle, old_path);
    if (old_file == nullptr)
        return 0;
    const File new_file = open_new(handle, new_path);
    if (new_file == nullptr)
        return 0;
    const bool copied = DescriptorCopy(handle, old_file.get(), new_file.get(), extent_name).run();
    old_file.reset();
    const bool written = flush(handle, new_file.get());
    return copied && written;
}
