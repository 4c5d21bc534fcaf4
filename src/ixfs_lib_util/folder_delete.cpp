#include "folder_delete.h"

#include "bounded_text.h"
#include "mount_root.h"

#include <cerrno>
#include <deque>
#include <dirent.h>
#include <exception>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <set>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace
{

struct StreamCloser {
    void operator()(DIR* stream) const { closedir(stream); }
};
using Stream = std::unique_ptr<DIR, StreamCloser>;

// Returns null, with errno, if there is no memory.
Stream stream_of(OpenFile folder)
{
    Stream stream(fdopendir(folder.descriptor()));
    if (stream != nullptr)
        folder.release();
    return stream;
}

bool is_self_or_parent(std::string_view name)
{
    return name == "." || name == "..";
}

// A folder that is being deleted.
struct Level {
    std::string name;
    std::size_t path_around; // length of the path of the folder that it stands in
    Stream stream;           // null while it is closed for what lies deeper
    dev_t device = 0;        // which folder it is, once it is closed
    ino_t inode = 0;
    std::set<std::string, std::less<>> stayed{}; // folders in it that could not be removed
};

// One deletion. Folders are deleted in place, where they are found. The folders from the outermost
// to the one that is being read are kept in a list, and only the innermost few of them open. So a
// deep tree costs neither stack nor descriptors.
class Deletion
{
public:
    Deletion(const Log& log, int parent, const char* path) : log_(log), parent_(parent), path_(path)
    {
    }

    bool run(const char* name, OpenFile folder);

private:
    static constexpr std::size_t most_open = 16;

    bool enter(const char* name, std::size_t path_around, OpenFile folder);
    const dirent* next_entry();
    bool delete_entry(const char* name);
    bool delete_child_folder(const char* name, std::size_t path_around);
    bool leave(bool is_empty);
    bool open_around();
    void close_outermost();
    void lengthen_path(const char* name);

    const Log& log_;
    const int parent_; // where the outermost folder stands
    std::deque<Level> levels_;
    std::size_t closed_ = 0; // how many levels, the outermost ones, are closed
    std::string path_;       // of what is being deleted, for messages
};

// Returns whether the outermost folder was removed.
bool Deletion::run(const char* name, OpenFile folder)
{
    if (!enter(name, path_.size(), std::move(folder)))
        return false;
    bool removed = false; // what was left last
    while (!levels_.empty()) {
        // An error of readdir ends the folder as its end does. What is left then keeps the folder
        // from being removed, which is logged.
        const dirent* const entry = next_entry();
        if (entry == nullptr)
            removed = leave(true);
        else if (!delete_entry(entry->d_name))
            removed = leave(false);
    }
    return removed;
}

// Goes into a folder, whose path path_ is by now.
bool Deletion::enter(const char* name, std::size_t path_around, OpenFile folder)
{
    Level level{name, path_around, stream_of(std::move(folder))};
    if (level.stream == nullptr) {
        log_not_opened(log_, path_.c_str(), errno);
        return false;
    }
    levels_.push_back(std::move(level));
    if (levels_.size() - closed_ > most_open)
        close_outermost();
    return true;
}

// Returns the innermost folder's next entry, null at its end. A folder that was closed in between
// is read from its beginning again, so what stayed comes again.
const dirent* Deletion::next_entry()
{
    const Level& level = levels_.back();
    const dirent* entry = nullptr;
    do
        entry = readdir(level.stream.get());
    while (entry != nullptr &&
           (is_self_or_parent(entry->d_name) || level.stayed.count(entry->d_name) != 0));
    return entry;
}

// Removes a file of the innermost folder, or goes into a folder in it. Returns false where a file
// could not be removed; a folder that stays makes its parent's rmdir fail.
bool Deletion::delete_entry(const char* name)
{
    Level& level = levels_.back();
    const std::size_t path_around = path_.size();
    lengthen_path(name);
    bool removed = true;
    if (unlinkat(dirfd(level.stream.get()), name, 0) == 0) {
        log_.info("INF - Removed file: %s\n", path_.c_str());
    } else if (errno == EISDIR) { // which is how Linux tells a folder from a file
        if (delete_child_folder(name, path_around))
            return true;
        level.stayed.insert(name);
    } else {
        log_.error("ERR - ACE_OS::unlink(%s) failed, error = %d\n", path_.c_str(), errno);
        removed = false;
    }
    path_.resize(path_around);
    return removed;
}

// Goes into a folder of the innermost one, unless that is, or may be, the root of a mounted file
// system. Returns whether it did.
bool Deletion::delete_child_folder(const char* name, std::size_t path_around)
{
    const int around = dirfd(levels_.back().stream.get());
    bool is_mounted = mount_root(around, name, AT_SYMLINK_NOFOLLOW) == MountRoot::yes;
    OpenFile folder;
    int error = 0;
    if (!is_mounted) {
        folder = open_folder(around, name);
        error = errno;
        // What counts is what was opened.
        is_mounted = folder.is_open() && mount_root(folder.descriptor()) != MountRoot::no;
    }
    if (is_mounted) {
        log_.error("ERR - still mounted, not deleted: %s\n", path_.c_str());
        return false;
    }
    log_.error("INF - Found a directory, calling _ixfs_folder_delete(\"%s\")\n", path_.c_str());
    if (!folder.is_open()) {
        log_not_opened(log_, path_.c_str(), error);
        return false;
    }
    return enter(name, path_around, std::move(folder));
}

// Ends the innermost folder, and removes it if it is empty. Returns whether it was removed.
bool Deletion::leave(bool is_empty)
{
    if (!open_around()) {
        levels_.clear();
        return false;
    }
    Level level = std::move(levels_.back());
    levels_.pop_back();
    const int around = levels_.empty() ? parent_ : dirfd(levels_.back().stream.get());
    const bool removed = is_empty && unlinkat(around, level.name.c_str(), AT_REMOVEDIR) == 0;
    const int error = errno;
    level.stream.reset(); // first: a log callback that looks finds nothing open any more
    if (removed)
        log_.info("INF - Removed directory: %s\n", path_.c_str());
    else if (is_empty)
        log_.error("ERR - Unable to remove directory: %s, error = %d\n", path_.c_str(), error);
    if (!removed && !levels_.empty())
        levels_.back().stayed.insert(std::move(level.name));
    path_.resize(level.path_around);
    return removed;
}

// Sees to it that the folder around the innermost one is open. The way up leads there, unless
// somebody has moved the innermost one. Then nothing tells what is above it, and the deletion ends.
bool Deletion::open_around()
{
    if (levels_.size() < 2 || closed_ < levels_.size() - 1)
        return true;
    Level& around = levels_[levels_.size() - 2];
    OpenFile folder = open_folder(dirfd(levels_.back().stream.get()), "..");
    struct stat status {
    };
    if (folder.is_open() && fstat(folder.descriptor(), &status) == 0) {
        if (status.st_dev == around.device && status.st_ino == around.inode)
            around.stream = stream_of(std::move(folder));
        else
            errno = ESTALE;
    }
    if (around.stream == nullptr) {
        const int error = errno;
        path_.resize(levels_.back().path_around);
        log_not_opened(log_, path_.c_str(), error);
        return false;
    }
    --closed_;
    return true;
}

void Deletion::close_outermost()
{
    Level& level = levels_[closed_++];
    struct stat status {
    };
    if (fstat(dirfd(level.stream.get()), &status) == 0) {
        level.device = status.st_dev;
        level.inode = status.st_ino;
    }
    level.stream.reset();
}

// A message shows no more than the beginning of a long path, so no more is kept.
void Deletion::lengthen_path(const char* name)
{
    if (path_.size() < log_message_size)
        (path_ += '/') += name;
}

} // namespace

PathEnd::PathEnd(const char* path)
{
    // A slash behind the name would make a symbolic link the folder that it leads to.
    std::string_view name = path;
    while (name.size() > 1 && name.back() == '/')
        name.remove_suffix(1);
    const std::size_t slash = name.find_last_of('/');
    if (slash != std::string_view::npos)
        name.remove_prefix(slash + 1);
    // What ends in no name can be opened but not removed, wherever it leads.
    const bool is_name = !name.empty() && !is_self_or_parent(name);
    if (slash == std::string_view::npos || !is_name) {
        parent_ = AT_FDCWD;
        name_ = is_name ? name : path;
        return;
    }
    name_ = name;
    const std::string folder(path, slash + 1);
    opened_ = OpenFile(open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (opened_.is_open())
        parent_ = opened_.descriptor();
}

OpenFile open_folder(int parent, const char* name)
{
    return OpenFile(
        openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

bool delete_folder(const Log& log, int parent, const char* name, const char* path) noexcept
{
    OpenFile folder = open_folder(parent, name);
    if (!folder.is_open()) {
        log_not_opened(log, path, errno);
        return false;
    }
    return delete_folder(log, parent, name, std::move(folder), path);
}

bool delete_folder(const Log& log, int parent, const char* name, OpenFile folder,
                   const char* path) noexcept
{
    try {
        return Deletion(log, parent, path).run(name, std::move(folder));
    } catch (const std::exception&) { // memory is short
        return false;
    }
}

void log_not_opened(const Log& log, const char* path, int error)
{
    log.error("ERR - ACE_OS::opendir(%s) failed, error = %d\n", path, error);
}

int _ixfs_folder_delete(_ixfs_control_t* handle, const char* path)
{
    const Log log(handle, folder_delete_tag);
    try {
        const PathEnd end(path);
        if (end.is_reached())
            return delete_folder(log, end.parent(), end.name(), path) ? 0 : 1;
        log_not_opened(log, path, errno);
    } catch (const std::exception&) { // no exception may reach a C caller
    }
    return 1;
}
