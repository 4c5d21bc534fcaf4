// Operations on names: finding, making, linking, moving and removing them, and their attributes.
#include "mirror.h"

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>

namespace faultfs
{

namespace
{

void on_lookup(fuse_req_t request, fuse_ino_t folder, const char* name)
{
    Mirror& fs = mirror_of(request);
    fs.gate.admit(request, {Operation::lookup, fs.nodes.child(folder, name)},
                  [=, &fs](const Call& call) { reply_entry(fs, request, call, 0); });
}

void on_forget(fuse_req_t request, fuse_ino_t node, std::uint64_t times)
{
    mirror_of(request).nodes.forget(node, times);
    fuse_reply_none(request);
}

void on_forget_multi(fuse_req_t request, std::size_t count, fuse_forget_data* forgotten)
{
    for (std::size_t i = 0; i < count; ++i)
        mirror_of(request).nodes.forget(forgotten[i].ino, forgotten[i].nlookup);
    fuse_reply_none(request);
}

void on_access(fuse_req_t request, fuse_ino_t node, int wanted)
{
    Mirror& fs = mirror_of(request);
    fs.gate.admit(request, {Operation::access, fs.nodes.path(node)}, [=, &fs](const Call& call) {
        reply(request, ::faccessat(fs.source.get(), below_source(call.path), wanted, 0));
    });
}

void reply_attributes(Mirror& fs, fuse_req_t request, const std::string& path)
{
    struct stat attributes;
    if (::fstatat(fs.source.get(), below_source(path), &attributes, AT_SYMLINK_NOFOLLOW) == -1)
        fuse_reply_err(request, errno);
    else
        fuse_reply_attr(request, &attributes, 0);
}

void on_getattr(fuse_req_t request, fuse_ino_t node, fuse_file_info*)
{
    Mirror& fs = mirror_of(request);
    fs.gate.admit(request, {Operation::getattr, fs.nodes.path(node)},
                  [=, &fs](const Call& call) { reply_attributes(fs, request, call.path); });
}

timespec time_to_set(int changes, int set, int set_to_now, const timespec& time)
{
    if ((changes & set_to_now) != 0)
        return {0, UTIME_NOW};
    return (changes & set) != 0 ? time : timespec{0, UTIME_OMIT};
}

int set_size(int source, const char* path, off_t size)
{
    const UniqueFd file(::openat(source, path, O_WRONLY | O_CLOEXEC));
    return file ? ::ftruncate(file.get(), size) : -1;
}

int set_attributes(int source, const char* path, const struct stat& wanted, int changes)
{
    if ((changes & FUSE_SET_ATTR_MODE) != 0 && ::fchmodat(source, path, wanted.st_mode, 0) == -1)
        return -1;
    const uid_t owner = (changes & FUSE_SET_ATTR_UID) != 0 ? wanted.st_uid : static_cast<uid_t>(-1);
    const gid_t group = (changes & FUSE_SET_ATTR_GID) != 0 ? wanted.st_gid : static_cast<gid_t>(-1);
    if ((changes & (FUSE_SET_ATTR_UID | FUSE_SET_ATTR_GID)) != 0 &&
        ::fchownat(source, path, owner, group, AT_SYMLINK_NOFOLLOW) == -1)
        return -1;
    if ((changes & FUSE_SET_ATTR_SIZE) != 0 && set_size(source, path, wanted.st_size) == -1)
        return -1;
    const std::array times = {
        time_to_set(changes, FUSE_SET_ATTR_ATIME, FUSE_SET_ATTR_ATIME_NOW, wanted.st_atim),
        time_to_set(changes, FUSE_SET_ATTR_MTIME, FUSE_SET_ATTR_MTIME_NOW, wanted.st_mtim)};
    return ::utimensat(source, path, times.data(), AT_SYMLINK_NOFOLLOW);
}

void on_setattr(fuse_req_t request, fuse_ino_t node, struct stat* attributes, int changes,
                fuse_file_info*)
{
    Mirror& fs = mirror_of(request);
    fs.gate.admit(
        request, {Operation::setattr, fs.nodes.path(node)},
        [=, &fs, wanted = *attributes](const Call& call) {
            if (set_attributes(fs.source.get(), below_source(call.path), wanted, changes) == -1)
                fuse_reply_err(request, errno);
            else
                reply_attributes(fs, request, call.path);
        });
}

void on_readlink(fuse_req_t request, fuse_ino_t node)
{
    Mirror& fs = mirror_of(request);
    fs.gate.admit(request, {Operation::readlink, fs.nodes.path(node)}, [=, &fs](const Call& call) {
        std::array<char, PATH_MAX> target{};
        if (::readlinkat(fs.source.get(), below_source(call.path), target.data(),
                         target.size() - 1) == -1)
            fuse_reply_err(request, errno);
        else
            fuse_reply_readlink(request, target.data());
    });
}

void on_mkdir(fuse_req_t request, fuse_ino_t folder, const char* name, mode_t mode)
{
    Mirror& fs = mirror_of(request);
    fs.gate.admit(request, {Operation::mkdir, fs.nodes.child(folder, name)},
                  [=, &fs](const Call& call) {
                      reply_entry(fs, request, call,
                                  ::mkdirat(fs.source.get(), below_source(call.path), mode));
                  });
}

void on_symlink(fuse_req_t request, const char* target, fuse_ino_t folder, const char* name)
{
    Mirror& fs = mirror_of(request);
    fs.gate.admit(request, {Operation::symlink, fs.nodes.child(folder, name)},
                  [=, &fs, to = std::string(target)](const Call& call) {
                      reply_entry(
                          fs, request, call,
                          ::symlinkat(to.c_str(), fs.source.get(), below_source(call.path)));
                  });
}

void on_link(fuse_req_t request, fuse_ino_t node, fuse_ino_t folder, const char* name)
{
    Mirror& fs = mirror_of(request);
    fs.gate.admit(request, {Operation::link, fs.nodes.child(folder, name)},
                  [=, &fs, existing = fs.nodes.path(node)](const Call& call) {
                      const int source = fs.source.get();
                      reply_entry(fs, request, call,
                                  ::linkat(source, below_source(existing), source,
                                           below_source(call.path), 0));
                  });
}

void remove_name(fuse_req_t request, Operation operation, fuse_ino_t folder, const char* name,
                 int flags)
{
    Mirror& fs = mirror_of(request);
    fs.gate.admit(request, {operation, fs.nodes.child(folder, name)}, [=, &fs](const Call& call) {
        const int result = ::unlinkat(fs.source.get(), below_source(call.path), flags);
        if (result == 0)
            fs.nodes.remove(call.path);
        reply(request, result);
    });
}

void on_unlink(fuse_req_t request, fuse_ino_t folder, const char* name)
{
    remove_name(request, Operation::unlink, folder, name, 0);
}

void on_rmdir(fuse_req_t request, fuse_ino_t folder, const char* name)
{
    remove_name(request, Operation::rmdir, folder, name, AT_REMOVEDIR);
}

void on_rename(fuse_req_t request, fuse_ino_t folder, const char* name, fuse_ino_t new_folder,
               const char* new_name, unsigned int flags)
{
    Mirror& fs = mirror_of(request);
    if ((flags & ~static_cast<unsigned int>(RENAME_NOREPLACE)) != 0) {
        fuse_reply_err(request, EINVAL);
        return;
    }
    fs.gate.admit(request, {Operation::rename, fs.nodes.child(new_folder, new_name)},
                  [=, &fs, from = fs.nodes.child(folder, name)](const Call& call) {
                      const int source = fs.source.get();
                      const int result = ::renameat2(source, below_source(from), source,
                                                     below_source(call.path), flags);
                      if (result == 0)
                          fs.nodes.rename(from, call.path);
                      reply(request, result);
                  });
}

} // namespace

void add_name_operations(fuse_lowlevel_ops& operations)
{
    operations.lookup = on_lookup;
    operations.forget = on_forget;
    operations.forget_multi = on_forget_multi;
    operations.access = on_access;
    operations.getattr = on_getattr;
    operations.setattr = on_setattr;
    operations.readlink = on_readlink;
    operations.mkdir = on_mkdir;
    operations.symlink = on_symlink;
    operations.link = on_link;
    operations.unlink = on_unlink;
    operations.rmdir = on_rmdir;
    operations.rename = on_rename;
}

} // namespace faultfs
