#include "mount_directories.h"

#include "open_descriptor.h"
#include "product.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <dirent.h>
#include <fcntl.h>
#include <map>
#include <memory>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace
{

constexpr unsigned int clone_tree = 1; // the kernel's OPEN_TREE_CLONE
constexpr int deepest = 16;

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

std::optional<std::time_t> birth_of(int base, const std::string& path)
{
    struct statx status {
    };
    if (base == -1 ||
        statx(base, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_BTIME, &status) != 0)
        return std::nullopt;
    if ((status.stx_mask & STATX_BTIME) == 0)
        return std::nullopt;
    return static_cast<std::time_t>(status.stx_btime.tv_sec);
}

class Search
{
public:
    explicit Search(const std::vector<Mount>& mounts)
    {
        for (const Mount& mount : mounts) {
            if (mount.point != base_ && is_at_or_below(mount.point, base_))
                layers_[mount.point].push_back(mount);
        }
    }

    std::vector<MountDirectory> run()
    {
        for (const auto& [path, layers] : layers_)
            add(path, layers);
        visit(base_, 0);
        std::sort(found_.begin(), found_.end(),
                  [](const auto& left, const auto& right) { return left.path < right.path; });
        return std::move(found_);
    }

private:
    MountDirectory& add(const std::string& path, const std::vector<Mount>& layers)
    {
        const std::string server = path.substr(base_.size() + 1);
        found_.push_back({path, server, true, false, layers, birth_of(bare_.number(), server),
                          Backups::not_looked_for, 0});
        return found_.back();
    }

    // Goes through a directory without a mount.
    void visit(const std::string& path, int depth)
    {
        const Directory directory(open_directory(path));
        if (directory == nullptr) {
            if (depth == 0 && errno != ENOENT)
                throw std::system_error(errno, std::generic_category(), path);
            return;
        }
        bool holds_directories = false;
        bool holds_files = false;
        while (const dirent* const entry = readdir(directory.get())) {
            const std::string name = entry->d_name;
            if (name == "." || name == "..")
                continue;
            std::string entry_path = path;
            entry_path.append("/").append(name);
            if (is_directory(entry_path)) {
                holds_directories = true;
                visit_directory(entry_path, depth + 1);
            } else if (depth == 0) {
                add(entry_path, {}).is_directory = false;
            } else {
                holds_files = true;
            }
        }
        if (depth > 0 && (holds_files || !holds_directories))
            add(path, {}).holds_files = holds_files;
    }

    void visit_directory(const std::string& path, int depth)
    {
        if (layers_.count(path) == 0 && depth < deepest)
            visit(path, depth);
    }

    // What is mounted there is not asked.
    bool is_directory(const std::string& path) const
    {
        if (layers_.count(path) != 0)
            return true;
        struct stat status {
        };
        return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
    }

    static DIR* open_directory(const std::string& path)
    {
        const int descriptor =
            open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK);
        return descriptor != -1 ? fdopendir(descriptor) : nullptr;
    }

    const std::string base_ = real_path(mount_base);
    std::map<std::string, std::vector<Mount>> layers_;
    // The mount base without what is mounted below it. Root alone can have that.
    const OpenDescriptor bare_{static_cast<int>(syscall(
        SYS_open_tree, AT_FDCWD, base_.c_str(), clone_tree | static_cast<unsigned>(O_CLOEXEC)))};
    std::vector<MountDirectory> found_;
};

} // namespace

std::vector<MountDirectory> find_mount_directories()
{
    return Search(read_mount_table()).run();
}
