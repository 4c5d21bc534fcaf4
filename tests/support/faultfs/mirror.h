// The source folder as seen through the mount: what the gate lets through is done to the same path
// below the source.
#ifndef FAULTFS_MIRROR_H
#define FAULTFS_MIRROR_H

#include "gate.h"
#include "nodes.h"
#include "rules.h"
#include "unique_fd.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <dirent.h>
#include <fuse_lowlevel.h>

namespace faultfs
{

// An open folder, and its entries as of the last time that it was read from the start.
struct OpenFolder {
    struct Closer {
        void operator()(DIR* folder) const { ::closedir(folder); }
    };

    std::unique_ptr<DIR, Closer> stream;
    std::vector<dirent> entries;
};

struct Mirror {
    explicit Mirror(UniqueFd folder) : source(std::move(folder)) {}

    UniqueFd source;
    Rules rules;
    Nodes nodes;
    Gate gate{rules, nodes};
    std::unordered_map<std::uint64_t, OpenFolder> open_folders;
    std::uint64_t last_open_folder = 0;
};

fuse_lowlevel_ops mirror_operations();

// Their three groups.
void add_name_operations(fuse_lowlevel_ops& operations);
void add_file_operations(fuse_lowlevel_ops& operations);
void add_folder_operations(fuse_lowlevel_ops& operations);

// What the operations share.
Mirror& mirror_of(fuse_req_t request);

// A path of the mount as the *at calls take it, beside the descriptor of the source.
const char* below_source(const std::string& path);

// Answers with a system call's result: -1 and errno, or success.
void reply(fuse_req_t request, int result);

// What to tell the kernel of a file that is there now. Fails with `ino` 0 and errno.
fuse_entry_param tell_entry(Mirror& mirror, const std::string& path);

// Answers a call that has made, or found, the file that it is about.
void reply_entry(Mirror& mirror, fuse_req_t request, const Call& call, int result);

} // namespace faultfs

#endif
