#include "mount_table.h"

#include "interruption.h"
#include "open_file.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <string_view>
#include <unistd.h>

namespace
{

// "thread-self": a thread may have mounts and descriptors of its own.
constexpr char table_path[] = "/proc/thread-self/mountinfo";
constexpr std::size_t file_name_size = sizeof("/proc/thread-self/fdinfo/-2147483648");

ssize_t read_some(const OpenFile& file, char* bytes, std::size_t size)
{
    return uninterrupted([&] { return read(file.descriptor(), bytes, size); });
}

// Returns the whole file, or an empty text if it cannot be read to its end.
std::string text_of(const char* path)
{
    const OpenFile file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file.is_open())
        return {};
    std::string text;
    char bytes[4096];
    ssize_t count = 0;
    while ((count = read_some(file, bytes, sizeof(bytes))) > 0)
        text.append(bytes, static_cast<std::size_t>(count));
    return count == 0 ? text : std::string();
}

// One line of the table: id, parent's id, device, root and mount point come first, with a blank
// behind each.
class Mount
{
public:
    explicit Mount(std::string_view line)
    {
        std::size_t blank = line.find(' ');
        id_ = std::atoi(std::string(line.substr(0, blank)).c_str());
        for (int field = 2; field <= 5 && blank != std::string_view::npos; ++field) {
            const std::size_t begin = blank + 1;
            blank = line.find(' ', begin);
            point_ = line.substr(begin, blank - begin);
        }
        identity_ = line.substr(0, blank);
    }

    int id() const { return id_; }

    // All that stays the same as long as the mount stays where it is. Its options may change.
    std::string_view identity() const { return identity_; }

    bool lies_below(const std::string& folder) const
    {
        const std::string point = mount_point();
        return point.size() > folder.size() && point.compare(0, folder.size(), folder) == 0 &&
               point[folder.size()] == '/';
    }

private:
    // The table writes blanks, newlines and the like as a backslash and three octal digits.
    std::string mount_point() const
    {
        std::string path;
        for (std::size_t i = 0; i < point_.size(); ++i) {
            if (point_[i] == '\\' && i + 3 < point_.size()) {
                const std::string digits(point_.substr(i + 1, 3));
                path += static_cast<char>(std::strtol(digits.c_str(), nullptr, 8));
                i += 3;
            } else {
                path += point_[i];
            }
        }
        return path;
    }

    int id_ = 0;
    std::string_view point_;
    std::string_view identity_;
};

// Returns the first mount of a table that is wanted, if there is one.
template <typename IsWanted>
std::optional<Mount> find_mount(std::string_view table, IsWanted is_wanted)
{
    while (!table.empty()) {
        const std::size_t end = table.find('\n');
        const Mount mount(table.substr(0, end));
        if (is_wanted(mount))
            return mount;
        table.remove_prefix(end == std::string_view::npos ? table.size() : end + 1);
    }
    return std::nullopt;
}

// The table has all mounts but one: that of a root which is a folder somewhere in it, as in a
// chroot.
bool is_in_mount_of_root(int id)
{
    const OpenFile root(open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
    return mount_id(root.descriptor()) == id;
}

// The path as the table has it, without symbolic links.
std::string real_path(const char* path)
{
    char real[PATH_MAX];
    return realpath(path, real) != nullptr ? real : path;
}

} // namespace

std::optional<int> mount_id(int descriptor)
{
    char path[file_name_size];
    std::snprintf(path, sizeof(path), "/proc/thread-self/fdinfo/%d", descriptor);
    const OpenFile file(open(path, O_RDONLY | O_CLOEXEC));
    if (!file.is_open())
        return std::nullopt;
    char text[256]; // the line is one of the first
    const ssize_t count = read_some(file, text, sizeof(text) - 1);
    if (count <= 0)
        return std::nullopt;
    text[count] = '\0';
    constexpr char key[] = "\nmnt_id:";
    const char* const line = std::strstr(text, key); // null before Linux 3.15
    return line != nullptr ? std::optional(std::atoi(line + sizeof(key) - 1)) : std::nullopt;
}

bool is_top(int directory)
{
    char link[file_name_size];
    std::snprintf(link, sizeof(link), "/proc/thread-self/fd/%d", directory);
    char path[2];
    return readlink(link, path, sizeof(path)) == 1 && path[0] == '/';
}

void MountTable::read() noexcept
{
    try {
        text_ = text_of(table_path);
    } catch (const std::exception&) { // memory is short
        text_.clear();
    }
}

bool MountTable::may_lack_mount_of(int directory, const char* base) const noexcept
try {
    const std::string now = text_of(table_path);
    const std::optional<int> id = mount_id(directory);
    if (text_.empty() || now.empty() || !id)
        return true;
    const auto mount = find_mount(now, [&](const Mount& other) { return other.id() == *id; });
    if (!mount)
        return !is_in_mount_of_root(*id); // it was just taken away
    const auto is_same = [&](const Mount& other) {
        return other.identity() == mount->identity();
    };
    return mount->lies_below(real_path(base)) || !find_mount(text_, is_same);
} catch (const std::exception&) { // memory is short
    return true;
}
