#include "lmf_pathname.h"
#include "log.h"
#include "mount_root.h"

#include <ace/OS_NS_dirent.h>
#include <ace/OS_NS_unistd.h>

#include <cerrno>
#include <memory>
#include <new>
#include <string_view>

namespace
{

struct DirectoryCloser {
    void operator()(ACE_DIR* directory) const { ACE_OS::closedir(directory); }
};
using Directory = std::unique_ptr<ACE_DIR, DirectoryCloser>;

bool is_self_or_parent(std::string_view name)
{
    return name == "." || name == "..";
}

// Removes a file, or a folder with its content, unless that is the root of a mounted file system.
// Returns false where a file could not be removed; a folder that stays makes its parent's rmdir
// fail.
bool delete_entry(_ixfs_control_t* handle, const Log& log, const LmfPathname& path)
{
    if (ACE_OS::unlink(path.text().c_str()) == 0) {
        log.info("INF - Removed file: %s\n", path.display_str());
        return true;
    }
    if (errno == EISDIR) { // which is how Linux tells a folder from a file
        if (mount_root(path.text().c_str()) == MountRoot::yes) {
            log.error("ERR - still mounted, not deleted: %s\n", path.display_str());
            return true;
        }
        log.error("INF - Found a directory, calling _ixfs_folder_delete(\"%s\")\n",
                  path.display_str());
        _ixfs_folder_delete(handle, path.text().c_str());
        return true;
    }
    log.error("ERR - ACE_OS::unlink(%s) failed, error = %d\n", path.display_str(), errno);
    return false;
}

bool delete_content(_ixfs_control_t* handle, const Log& log, const char* path, ACE_DIR* directory)
{
    // An error of readdir ends the walk as the folder's end does. What is left then keeps the
    // folder from being removed, which is logged.
    while (const dirent* const entry = ACE_OS::readdir(directory)) {
        if (is_self_or_parent(entry->d_name))
            continue;
        LmfPathname child;
        child.makeFilename(path, false);
        child.makeFilename(entry->d_name, true);
        if (!delete_entry(handle, log, child))
            return false;
    }
    return true;
}

bool delete_folder(_ixfs_control_t* handle, const Log& log, const char* path)
{
    Directory directory(ACE_OS::opendir(path));
    if (directory == nullptr) {
        log.error("ERR - ACE_OS::opendir(%s) failed, error = %d\n", path, errno);
        return false;
    }
    if (!delete_content(handle, log, path, directory.get()))
        return false;
    const bool removed = ACE_OS::rmdir(path) == 0;
    const int error = errno;
    directory.reset(); // first: a log callback that looks finds nothing open any more
    if (removed)
        log.info("INF - Removed directory: %s\n", path);
    else
        log.error("ERR - Unable to remove directory: %s, error = %d\n", path, error);
    return removed;
}

} // namespace

int _ixfs_folder_delete(_ixfs_control_t* handle, const char* path)
{
    try {
        return delete_folder(handle, Log(handle, "_ixfs_folder_delete()"), path) ? 0 : 1;
    } catch (const std::bad_alloc&) { // no exception may reach a C caller
        return 1;
    }
}
