#include "mount_table.h"

#include "proc_file.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <sstream>
#include <system_error>

namespace
{

// The table writes blanks, newlines and the like as a backslash and three octal digits.
std::string without_escapes(const std::string& text)
{
    std::string plain;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\\' && i + 3 < text.size()) {
            plain += static_cast<char>(std::strtol(text.substr(i + 1, 3).c_str(), nullptr, 8));
            i += 3;
        } else {
            plain += text[i];
        }
    }
    return plain;
}

// id, parent's id, device, root, point, options, any number of further fields, "-", type, source
Mount parse_mount(const std::string& line)
{
    Mount mount{};
    std::istringstream fields(line);
    std::string skipped;
    fields >> mount.id >> mount.parent >> mount.device >> skipped >> mount.point >> skipped;
    while (fields >> skipped && skipped != "-")
        continue;
    fields >> mount.type >> mount.source;
    mount.point = without_escapes(mount.point);
    mount.type = without_escapes(mount.type);
    mount.source = without_escapes(mount.source);
    return mount;
}

std::vector<Mount> parse_table(const std::string& text)
{
    std::vector<Mount> mounts;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);)
        mounts.push_back(parse_mount(line));
    return mounts;
}

} // namespace

std::vector<Mount> read_mount_table()
{
    const std::string path = "/proc/self/mountinfo";
    const std::optional<std::string> text = read_proc_file(path);
    if (!text)
        throw std::system_error(errno, std::generic_category(), path);
    return parse_table(*text);
}

std::vector<Mount> mount_table_of(pid_t pid)
{
    return parse_table(read_proc_file("/proc/" + std::to_string(pid) + "/mountinfo").value_or(""));
}

std::string real_path(const std::string& path)
{
    std::error_code error;
    const std::filesystem::path real = std::filesystem::weakly_canonical(path, error);
    return error ? path : real.string();
}

bool is_at_or_below(const std::string& path, const std::string& folder)
{
    return path.compare(0, folder.size(), folder) == 0 &&
           (path.size() == folder.size() || path[folder.size()] == '/');
}
