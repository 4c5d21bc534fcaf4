#include "tree_snapshot.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

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

std::string describe(const fs::directory_entry& entry)
{
    const fs::file_status status = entry.symlink_status();
    std::string description = std::to_string(static_cast<int>(status.type())) + ' ' +
                              std::to_string(static_cast<int>(status.permissions()));
    if (fs::is_regular_file(status))
        description += ' ' + bytes_of(entry.path());
    return description;
}

} // namespace

TreeSnapshot::TreeSnapshot(std::string root)
    : root_(std::move(root)), entries_(entries_below(root_))
{
}

TreeSnapshot::Entries TreeSnapshot::entries_below(const std::string& root)
{
    Entries entries;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root))
        entries[fs::relative(entry.path(), root)] = describe(entry);
    return entries;
}

std::vector<std::string> TreeSnapshot::changes() const
{
    const Entries now = entries_below(root_);
    Entries changed;
    std::set_symmetric_difference(entries_.begin(), entries_.end(), now.begin(), now.end(),
                                  std::inserter(changed, changed.end()));
    std::vector<std::string> paths;
    for (const auto& [path, description] : changed)
        paths.push_back(path);
    return paths;
}
