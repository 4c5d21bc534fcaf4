#include "exact_snapshot.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <sstream>
#include <system_error>
#include <utility>

#include <sys/stat.h>

namespace fs = std::filesystem;

namespace
{

constexpr off_t most_compared = 64 << 20; // bytes; what is larger is a hole but for its beginning

std::string content_of(const fs::path& path, const struct stat& status)
{
    if (S_ISLNK(status.st_mode))
        return fs::read_symlink(path);
    if (S_ISREG(status.st_mode) && status.st_size <= most_compared)
        return bytes_of(path);
    return "";
}

std::ostream& operator<<(std::ostream& stream, const timespec& time)
{
    return stream << time.tv_sec << '.' << time.tv_nsec;
}

std::string description_of(const fs::path& path, ExactSnapshot::Of what)
{
    struct stat status {
    };
    if (lstat(path.c_str(), &status) != 0)
        throw std::system_error(errno, std::generic_category(), path);
    std::ostringstream text;
    text << std::oct << status.st_mode << std::dec << ' ' << status.st_ino << ' ' << status.st_uid
         << ' ' << status.st_gid << ' ' << status.st_rdev;
    if (what != ExactSnapshot::Of::backup || !S_ISDIR(status.st_mode))
        text << ' ' << status.st_size << ' ' << status.st_mtim;
    if (what != ExactSnapshot::Of::backup)
        text << ' ' << status.st_nlink;
    if (what == ExactSnapshot::Of::host)
        text << ' ' << status.st_ctim;
    text << ' ' << content_of(path, status);
    return text.str();
}

bool is_of_view(const fs::path& path)
{
    return std::find(path.begin(), path.end(), "_vmir") != path.end();
}

} // namespace

ExactSnapshot::ExactSnapshot(std::string root, Of what)
    : root_(std::move(root)), what_(what), description_(describe())
{
}

TreeDescription ExactSnapshot::describe() const
{
    TreeDescription description = describe_tree(
        root_, [this](const fs::directory_entry& entry) { return description_of(entry, what_); });
    if (what_ != Of::backup)
        return description;
    for (auto entry = description.begin(); entry != description.end();)
        entry = is_of_view(entry->first) ? description.erase(entry) : std::next(entry);
    return description;
}

std::vector<std::string> ExactSnapshot::changes() const
{
    return changed_paths(description_, describe());
}
