#include "files.h"

#include "etime_retry.h"
#include "lmf_pathname.h"
#include "log.h"

#include <ace/OS_NS_sys_stat.h>
#include <ace/OS_NS_unistd.h>

#include <cerrno>
#include <new>

namespace
{

// Makes one directory. Returns false when the directory certainly does not exist.
bool create_segment(const Log& log, int number, const LmfPathname& path, const MakeSegment& make)
{
    if (call_again_on_etime([&] { return make(number, path.text().c_str()); }) == 0)
        return true;
    switch (errno) {
    case EEXIST:
        log.info("INF - ACE_OS::mkdir(): Segment (%d), Parent (%s) already exists, "
                 "continuing...\n",
                 number, path.display_str());
        return true;
    case ETIME: // it may have been made all the same; the next segment tells
        return true;
    default:
        log.info("ERR - ACE_OS::mkdir(): Could not create Parent (%s), error: %d\n",
                 path.display_str(), errno);
        return false;
    }
}

bool is_root(const LmfPathname& path)
{
    return !path.text().empty() && path.text().find_first_not_of('/') == std::string::npos;
}

// The number of the first segment that may be missing. The first segment of a path lies inside the
// base name, which exists. But "/" is no segment of its own, so below it every segment may be
// missing.
long first_to_create(const LmfPathname& base, const LmfPathname& path)
{
    return is_root(base) && !is_root(path) ? 1 : 2;
}

// Makes the segments of `path` from number `first` on.
bool create_segments(const Log& log, const LmfPathname& path, long first, uint32_t* created,
                     const MakeSegment& make)
{
    path.makeSegments();
    const NameSegments& segments = *path.segments();
    LmfPathname prefix;
    for (long i = 1; const char* const name = segments.getSegment(i, nullptr, nullptr); ++i) {
        prefix.makeFilename(name, true);
        if (i < first)
            continue;
        if (!create_segment(log, static_cast<int>(i), prefix, make))
            return false;
        ++*created;
    }
    log.info("INF - Successfully created directory: %s\n", prefix.display_str());
    return true;
}

} // namespace

bool report_access(_ixfs_control_t* handle, const char* path, int result)
{
    const Log log(handle, "_ixfs_file_exists()");
    if (result == 0) {
        log.info("INF - SUCCESS ACE_OS::access(%s) indicates that the file exists\n", path);
        return true;
    }
    if (errno == ETIME)
        log.error("ERR - ACE_OS::access(%s) failed with semaphoere timeout\n", path);
    else if (errno != ENOENT)
        log.error("ERR - ACE_OS::access(%s) failed, error = %d\n", path, errno);
    return false;
}

bool create_folders(_ixfs_control_t* handle, const char* base_name, const char* folder_name,
                    uint32_t* segments, const MakeSegment& make)
{
    const Log log(handle, "_ixfs_folder_create()");
    log.info("INF - base_name: %s, folder_name: %s\n", base_name, folder_name);
    try {
        LmfPathname base;
        base.makeFilename(base_name, false);
        LmfPathname path = base;
        path.makeFilename(folder_name, true);
        log.info("INF - path: %s\n", path.text().c_str());
        return create_segments(log, path, first_to_create(base, path), segments, make);
    } catch (const std::bad_alloc&) { // no exception may reach a C caller
        errno = ENOMEM;
        return false;
    }
}

int report_link(_ixfs_control_t* handle, const char* existing, const char* new_path, int error)
{
    if (error == 0)
        return 1;
    Log(handle, "_ixfs_create_hard_link()")
        .error("ERR - Could not create link %s to %s - %d\n", existing, new_path, error);
    return error;
}

int _ixfs_file_exists(_ixfs_control_t* handle, const char* path)
{
    const int result = call_again_on_etime([&] { return ACE_OS::access(path, R_OK); });
    return report_access(handle, path, result) ? 1 : 0;
}

int _ixfs_folder_create(_ixfs_control_t* handle, const char* base_name, const char* folder_name,
                        uint32_t* segments, mode_t mode)
{
    const auto make = [mode](int /*number*/, const char* path) {
        return ACE_OS::mkdir(path, mode);
    };
    return create_folders(handle, base_name, folder_name, segments, make) ? 0 : 1;
}

int _ixfs_create_hard_link(_ixfs_control_t* handle, const char* existing, const char* new_path)
{
    return report_link(handle, existing, new_path, link(existing, new_path) == 0 ? 0 : errno);
}
