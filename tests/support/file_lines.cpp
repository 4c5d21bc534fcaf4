#include "file_lines.h"

#include <cstddef>
#include <vector>

namespace
{

// The paths of the folders that lead to `path`, itself the last: "/a", "/a/b", ...
std::vector<std::string> prefixes(const std::string& path)
{
    std::vector<std::string> found;
    for (std::size_t end = path.find('/', 1); end != std::string::npos;
         end = path.find('/', end + 1))
        found.push_back(path.substr(0, end));
    found.push_back(path);
    return found;
}

} // namespace

Lines folder_created_lines(const std::string& base, const std::string& folder, int missing)
{
    constexpr char tag[] = "_ixfs_folder_create()";
    const std::string path = base + "/" + folder;
    Lines lines{
        {IXFS_LOG_INF, tag, "INF - base_name: " + base + ", folder_name: " + folder + "\n"},
        {IXFS_LOG_INF, tag, "INF - path: " + path + "\n"},
    };
    const std::vector<std::string> folders = prefixes(path);
    const std::size_t present = folders.size() - static_cast<std::size_t>(missing);
    for (std::size_t i = 1; i < present; ++i)
        lines.push_back({IXFS_LOG_INF, tag,
                         "INF - ACE_OS::mkdir(): Segment (" + std::to_string(i + 1) +
                             "), Parent (" + folders[i] + ") already exists, continuing...\n"});
    lines.push_back({IXFS_LOG_INF, tag, "INF - Successfully created directory: " + path + "\n"});
    return lines;
}
