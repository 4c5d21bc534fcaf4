#include "etime_retry.h"
#include "ixfs.h"
#include "lmf_pathname.h"

#include <ace/OS_NS_sys_stat.h>
#include <ace/OS_NS_unistd.h>

#include <cerrno>
#include <new>

namespace
{

constexpr char create_tag[] = "_ixfs_folder_create()";

// Makes one directory. Returns false when the directory certainly does not exist.
bool create_segment(_ixfs_control_t* handle, int number, const LmfPathname& path, mode_t mode)
{
    if (call_again_on_etime([&] { return ACE_OS::mkdir(path.text().c_str(), mode); }) == 0)
        return true;
    switch (errno) {
    case EEXIST:
        _ixfs_log(handle, create_tag, IXFS_LOG_INF,
                  "INF - ACE_OS::mkdir(): Segment (%d), Parent (%s) already exists, "
                  "continuing...\n",
                  number, path.display_str());
        return true;
    case ETIME: // it may have been made all the same; the next segment tells
        return true;
    default:
        _ixfs_log(handle, create_tag, IXFS_LOG_INF,
                  "ERR - ACE_OS::mkdir(): Could not create Parent (%s), error: %d\n",
                  path.display_str(), errno);
        return false;
    }
}

// Makes every segment of `path` but the first, which must exist.
bool create_segments(_ixfs_control_t* handle, const LmfPathname& path, uint32_t* created,
                     mode_t mode)
{
    path.makeSegments();
    const NameSegments& segments = *path.segments();
    LmfPathname prefix;
    prefix.makeFilename(segments.getSegment(1, nullptr, nullptr), false);
    for (long i = 2; i <= segments.count(); ++i) {
        prefix.makeFilename(segments.getSegment(i, nullptr, nullptr), true);
        if (!create_segment(handle, static_cast<int>(i), prefix, mode))
            return false;
        ++*created;
    }
    _ixfs_log(handle, create_tag, IXFS_LOG_INF, "INF - Successfully created directory: %s\n",
              prefix.display_str());
    return true;
}

} // namespace

int _ixfs_file_exists(_ixfs_control_t* handle, const char* path)
{
    constexpr char tag[] = "_ixfs_file_exists()";
    if (call_again_on_etime([&] { return ACE_OS::access(path, R_OK); }) == 0) {
        _ixfs_log(handle, tag, IXFS_LOG_INF,
                  "INF - SUCCESS ACE_OS::access(%s) indicates that the file exists\n", path);
        return 1;
    }
    if (errno == ETIME)
        _ixfs_log(handle, tag, IXFS_LOG_ERR,
                  "ERR - ACE_OS::access(%s) failed with semaphoere timeout\n", path);
    else if (errno != ENOENT)
        _ixfs_log(handle, tag, IXFS_LOG_ERR, "ERR - ACE_OS::access(%s) failed, error = %d\n", path,
                  errno);
    return 0;
}

int _ixfs_folder_create(_ixfs_control_t* handle, const char* base_name, const char* folder_name,
                        uint32_t* segments, mode_t mode)
{
    _ixfs_log(handle, create_tag, IXFS_LOG_INF, "INF - base_name: %s, folder_name: %s\n", base_name,
              folder_name);
    try {
        LmfPathname path;
        path.makeFilename(base_name, false);
        path.makeFilename(folder_name, true);
        _ixfs_log(handle, create_tag, IXFS_LOG_INF, "INF - path: %s\n", path.text().c_str());
        return create_segments(handle, path, segments, mode) ? 0 : 1;
    } catch (const std::bad_alloc&) { // no exception may reach a C caller
        errno = ENOMEM;
        return 1;
    }
}

int _ixfs_create_hard_link(_ixfs_control_t* handle, const char* existing, const char* new_path)
{
    if (link(existing, new_path) == 0)
        return 1;
    const int error = errno;
    _ixfs_log(handle, "_ixfs_create_hard_link()", IXFS_LOG_ERR,
              "ERR - Could not create link %s to %s - %d\n", existing, new_path, error);
    return error;
}
