#include "mirror.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>

namespace faultfs
{

fuse_lowlevel_ops mirror_operations()
{
    fuse_lowlevel_ops operations{};
    add_name_operations(operations);
    add_file_operations(operations);
    add_folder_operations(operations);
    return operations;
}

Mirror& mirror_of(fuse_req_t request)
{
    return *static_cast<Mirror*>(fuse_req_userdata(request));
}

const char* below_source(const std::string& path)
{
    return path == "/" ? "." : path.c_str() + 1;
}

void reply(fuse_req_t request, int result)
{
    fuse_reply_err(request, result == -1 ? errno : 0);
}

// Time-outs of 0: every system call is to reach the rules.
fuse_entry_param tell_entry(Mirror& mirror, const std::string& path)
{
    fuse_entry_param entry{};
    if (::fstatat(mirror.source.get(), below_source(path), &entry.attr, AT_SYMLINK_NOFOLLOW) == 0)
        entry.ino = mirror.nodes.tell(path);
    return entry;
}

void reply_entry(Mirror& mirror, fuse_req_t request, const Call& call, int result)
{
    fuse_entry_param entry{};
    if (result != -1)
        entry = tell_entry(mirror, call.path);
    if (entry.ino == 0)
        mirror.gate.fail(request, call, errno);
    else if (fuse_reply_entry(request, &entry) != 0)
        mirror.nodes.forget(entry.ino, 1); // the caller has gone
}

} // namespace faultfs
