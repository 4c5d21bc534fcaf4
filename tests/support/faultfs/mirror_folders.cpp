// Operations on open folders.
#include "mirror.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>

namespace faultfs
{

namespace
{

void on_opendir(fuse_req_t request, fuse_ino_t node, fuse_file_info*)
{
    Mirror& fs = mirror_of(request);
    fs.gate.admit(request, {Operation::opendir, fs.nodes.path(node)}, [=, &fs](const Call& call) {
        UniqueFd folder(
            ::openat(fs.source.get(), below_source(call.path), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        OpenFolder opened;
        if (folder)
            opened.stream.reset(::fdopendir(folder.get()));
        if (!opened.stream) {
            fuse_reply_err(request, errno);
            return;
        }
        folder.release();
        fuse_file_info answer{};
        answer.fh = ++fs.last_open_folder;
        if (fuse_reply_open(request, &answer) == 0)
            fs.open_folders[answer.fh] = std::move(opened);
    });
}

void read_from_start(OpenFolder& folder)
{
    folder.entries.clear();
    ::rewinddir(folder.stream.get());
    while (const dirent* const entry = ::readdir(folder.stream.get()))
        folder.entries.push_back(*entry);
}

void reply_entries(Mirror& fs, fuse_req_t request, const Call& call, const OpenFolder& folder,
                   std::size_t next, std::size_t size)
{
    std::vector<char> buffer(size);
    std::size_t used = 0;
    while (next < folder.entries.size()) {
        const dirent& entry = folder.entries[next++];
        if (fs.rules.hide(join(call.path, entry.d_name)))
            continue;
        struct stat attributes = {};
        attributes.st_ino = entry.d_ino;
        attributes.st_mode = static_cast<mode_t>(DTTOIF(entry.d_type));
        const std::size_t needed =
            fuse_add_direntry(request, buffer.data() + used, size - used, entry.d_name, &attributes,
                              static_cast<off_t>(next));
        if (needed > size - used)
            break;
        used += needed;
    }
    fuse_reply_buf(request, buffer.data(), used);
}

void on_readdir(fuse_req_t request, fuse_ino_t node, std::size_t size, off_t offset,
                fuse_file_info* info)
{
    Mirror& fs = mirror_of(request);
    fs.gate.admit(request, {Operation::readdir, fs.nodes.path(node)},
                  [=, &fs, handle = info->fh](const Call& call) {
                      OpenFolder& folder = fs.open_folders.at(handle);
                      if (offset == 0)
                          read_from_start(folder);
                      reply_entries(fs, request, call, folder, static_cast<std::size_t>(offset),
                                    size);
                  });
}

void on_releasedir(fuse_req_t request, fuse_ino_t, fuse_file_info* info)
{
    mirror_of(request).open_folders.erase(info->fh);
    fuse_reply_err(request, 0);
}

} // namespace

void add_folder_operations(fuse_lowlevel_ops& operations)
{
    operations.opendir = on_opendir;
    operations.readdir = on_readdir;
    operations.releasedir = on_releasedir;
}

} // namespace faultfs
