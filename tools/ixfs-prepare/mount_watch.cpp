#include "mount_watch.h"

#include "begins_with.h"
#include "product.h"

#include <algorithm>

namespace
{

constexpr std::string_view running_command = "INF - running command - ";

// A point may read differently later, when its folder is deleted.
bool is_same(const Mount& one, const Mount& other)
{
    return one.id == other.id && one.parent == other.parent && one.device == other.device &&
           one.type == other.type && one.source == other.source;
}

bool is_among(const Mount& mount, const std::vector<Mount>& others)
{
    return std::any_of(others.begin(), others.end(),
                       [&](const Mount& other) { return is_same(mount, other); });
}

template <typename Condition>
std::vector<Mount> those_that(const std::vector<Mount>& mounts, const Condition& condition)
{
    std::vector<Mount> found;
    std::copy_if(mounts.begin(), mounts.end(), std::back_inserter(found), condition);
    return found;
}

} // namespace

std::vector<Mount> kept(const std::vector<Mount>& mounts, const std::vector<Mount>& others)
{
    return those_that(mounts, [&](const Mount& mount) { return is_among(mount, others); });
}

std::vector<Mount> without(const std::vector<Mount>& mounts, const std::vector<Mount>& others)
{
    return those_that(mounts, [&](const Mount& mount) { return !is_among(mount, others); });
}

std::vector<Mount> in_folders(const std::vector<Mount>& mounts,
                              const std::vector<std::string>& folders)
{
    return those_that(mounts, [&](const Mount& mount) {
        return std::any_of(folders.begin(), folders.end(), [&](const std::string& folder) {
            return is_at_or_below(mount.point, folder);
        });
    });
}

MountWatch::MountWatch(const std::string& server)
{
    own_.folders.push_back(real_path(mount_base) + "/" + server);
}

bool MountWatch::take(std::string_view tag, std::string_view message)
{
    if (tag == "_ixfs_mount_validate_thread()")
        return false; // another thread's, at any time
    if (tag == "ixfs_mount()")
        return take_mount_line(message);
    if (tag == "_ixfs_mount_validate()" && stage_ == Stage::mounting)
        return look_for_new(), true;
    if (tag == "ixfs_unmount()" && begins_with(message, running_command)) {
        begin_unmount();
        return false;
    }
    if (stage_ != Stage::unmounting)
        return false;
    look_for_gone();
    return true;
}

bool MountWatch::take_mount_line(std::string_view message)
{
    if (stage_ == Stage::before_helper && begins_with(message, running_command)) {
        stage_ = Stage::mounting;
        before_ = read_mount_table();
        own_.before = in_folders(before_, own_.folders);
        return true;
    }
    if (begins_with(message, "INF - mount point - ")) // the mutex is given up
        stage_ = Stage::mounted;
    if (stage_ != Stage::mounting)
        return false;
    if (begins_with(message, "MOUNTPOINT= "))
        add_folder_of(message);
    look_for_new();
    return true;
}

// The line repeats the helper's. The mount point is what follows its last "=".
void MountWatch::add_folder_of(std::string_view message)
{
    std::string folder(message.substr(message.rfind('=') + 1));
    while (!folder.empty() && (folder.back() == '\n' || folder.back() == '/'))
        folder.pop_back();
    if (folder.empty() || folder.front() != '/' ||
        std::find(own_.folders.begin(), own_.folders.end(), folder) != own_.folders.end())
        return;
    own_.folders.push_back(folder);
    own_.before = in_folders(before_, own_.folders);
}

void MountWatch::look_for_new()
{
    own_.made = without(mounts_in_folders(), before_);
}

void MountWatch::begin_unmount()
{
    if (stage_ == Stage::unmounting)
        return; // another try, since the server was busy
    stage_ = Stage::unmounting;
    before_unmount_ = mounts_in_folders();
    made_before_unmount_ = own_.made;
}

void MountWatch::look_for_gone()
{
    const std::vector<Mount> now = mounts_in_folders();
    const std::vector<Mount> gone = without(before_unmount_, now);
    own_.made = kept(made_before_unmount_, now);
    own_.exchanged = static_cast<int>(without(gone, made_before_unmount_).size());
}

std::vector<Mount> MountWatch::mounts_in_folders() const
{
    return in_folders(read_mount_table(), own_.folders);
}
