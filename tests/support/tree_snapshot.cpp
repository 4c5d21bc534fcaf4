#include "tree_snapshot.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

namespace fs = std::filesystem;

std::string bytes_of(const std::string& file)
{
    std::ifstream stream(file, std::ios::binary);
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    std::string bytes(fs::file_size(file), '\0');
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

namespace
{

std::string kind_permissions_and_bytes(const fs::directory_entry& entry)
{
    const fs::file_status status = entry.symlink_status();
    std::string description = std::to_string(static_cast<int>(status.type())) + ' ' +
                              std::to_string(static_cast<int>(status.permissions()));
    if (fs::is_regular_file(status))
        description += ' ' + bytes_of(entry.path());
    return description;
}

} // namespace

TreeDescription
describe_tree(const std::string& root,
              const std::function<std::string(const fs::directory_entry&)>& describe)
{
    TreeDescription description;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root))
        description[entry.path().lexically_relative(root)] = describe(entry);
    return description;
}

std::vector<std::string> changed_paths(const TreeDescription& before, const TreeDescription& now)
{
    TreeDescription changed;
    std::set_symmetric_difference(before.begin(), before.end(), now.begin(), now.end(),
                                  std::inserter(changed, changed.end()));
    std::vector<std::string> paths;
    for (const auto& [path, description] : changed)
        paths.push_back(path);
    return paths;
}

TreeSnapshot::TreeSnapshot(std::string root)
    : root_(std::move(root)), description_(describe_tree(root_, kind_permissions_and_bytes))
{
}

std::vector<std::string> TreeSnapshot::changes() const
{
    return changed_paths(description_, describe_tree(root_, kind_permissions_and_bytes));
}
