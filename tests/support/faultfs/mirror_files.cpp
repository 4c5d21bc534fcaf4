// Operations on open files.
#include "mirror.h"

#include <cerrno>

#include <fcntl.h>

namespace faultfs
{

namespace
{

// Whatever the caller's alignment: buffers and offsets are not the caller's here.
int source_flags(int flags)
{
    return (flags & ~O_DIRECT) | O_CLOEXEC;
}

// An answer to open and create. Direct I/O: every read and write is to reach the rules.
fuse_file_info opened(const UniqueFd& file)
{
    fuse_file_info info{};
    info.fh = static_cast<std::uint64_t>(file.get());
    info.direct_io = 1;
    return info;
}

int descriptor(const fuse_file_info& info)
{
    return static_cast<int>(info.fh);
}

bool may_write(int flags)
{
    return (flags & O_ACCMODE) != O_RDONLY || (flags & O_TRUNC) != 0;
}

void on_open(fuse_req_t request, fuse_ino_t node, fuse_file_info* info)
{
    Mirror& fs = mirror_of(request);
    const int flags = info->flags;
    fs.gate.admit(
        request, {may_write(flags) ? Operation::open_write : Operation::open, fs.nodes.path(node)},
        [=, &fs](const Call& call) {
            UniqueFd file(::openat(fs.source.get(), below_source(call.path), source_flags(flags)));
            const fuse_file_info answer = opened(file);
            if (!file)
                fuse_reply_err(request, errno);
            else if (fuse_reply_open(request, &answer) == 0)
                file.release();
        });
}

void on_create(fuse_req_t request, fuse_ino_t folder, const char* name, mode_t mode,
               fuse_file_info* info)
{
    Mirror& fs = mirror_of(request);
    const int flags = info->flags | O_CREAT;
    fs.gate.admit(request, {Operation::create, fs.nodes.child(folder, name)},
                  [=, &fs](const Call& call) {
                      UniqueFd file(::openat(fs.source.get(), below_source(call.path),
                                             source_flags(flags), mode));
                      fuse_entry_param entry{};
                      if (file)
                          entry = tell_entry(fs, call.path);
                      const fuse_file_info answer = opened(file);
                      if (entry.ino == 0)
                          fuse_reply_err(request, errno);
                      else if (fuse_reply_create(request, &entry, &answer) == 0)
                          file.release();
                      else
                          fs.nodes.forget(entry.ino, 1);
                  });
}

Call transfer(Operation operation, const std::string& path, off_t offset, std::size_t size)
{
    const auto begin = static_cast<std::uint64_t>(offset);
    return {operation, path, begin, begin + size};
}

void on_read(fuse_req_t request, fuse_ino_t node, std::size_t size, off_t offset,
             fuse_file_info* info)
{
    Mirror& fs = mirror_of(request);
    fs.gate.admit(request, transfer(Operation::read, fs.nodes.path(node), offset, size),
                  [request, offset, file = descriptor(*info)](const Call& call) {
                      std::vector<char> bytes(call.end - call.begin);
                      const ssize_t got = ::pread(file, bytes.data(), bytes.size(), offset);
                      if (got == -1)
                          fuse_reply_err(request, errno);
                      else
                          fuse_reply_buf(request, bytes.data(), static_cast<std::size_t>(got));
                  });
}

void on_write(fuse_req_t request, fuse_ino_t node, const char* bytes, std::size_t size,
              off_t offset, fuse_file_info* info)
{
    Mirror& fs = mirror_of(request);
    fs.gate.admit(request, transfer(Operation::write, fs.nodes.path(node), offset, size),
                  [request, offset, file = descriptor(*info),
                   copy = std::string(bytes, size)](const Call& call) {
                      const ssize_t put =
                          ::pwrite(file, copy.data(), call.end - call.begin, offset);
                      if (put == -1)
                          fuse_reply_err(request, errno);
                      else
                          fuse_reply_write(request, static_cast<std::size_t>(put));
                  });
}

void on_flush(fuse_req_t request, fuse_ino_t node, fuse_file_info*)
{
    Mirror& fs = mirror_of(request);
    fs.gate.admit(request, {Operation::flush, fs.nodes.path(node)},
                  [request](const Call&) { fuse_reply_err(request, 0); });
}

void on_release(fuse_req_t request, fuse_ino_t, fuse_file_info* info)
{
    reply(request, ::close(descriptor(*info)));
}

} // namespace

void add_file_operations(fuse_lowlevel_ops& operations)
{
    operations.open = on_open;
    operations.create = on_create;
    operations.read = on_read;
    operations.write = on_write;
    operations.flush = on_flush;
    operations.release = on_release;
}

} // namespace faultfs
