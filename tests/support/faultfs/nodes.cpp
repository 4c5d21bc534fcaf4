#include "nodes.h"

namespace faultfs
{

namespace
{

bool is_at_or_below(const std::string& path, const std::string& folder)
{
    return path.compare(0, folder.size(), folder) == 0 &&
           (path.size() == folder.size() || path[folder.size()] == '/');
}

} // namespace

std::string join(const std::string& folder, const std::string& name)
{
    return folder == "/" ? folder + name : folder + '/' + name;
}

std::string Nodes::child(fuse_ino_t folder, const char* name) const
{
    return join(path(folder), name);
}

fuse_ino_t Nodes::tell(const std::string& path)
{
    const auto [known, is_new] = numbers_.try_emplace(path, last_ + 1);
    if (is_new)
        nodes_[++last_].path = path;
    Node& node = nodes_.at(known->second);
    ++node.told;
    node.cached = true;
    return known->second;
}

void Nodes::forget(fuse_ino_t number, std::uint64_t times)
{
    if (number == FUSE_ROOT_ID)
        return;
    Node& node = nodes_.at(number);
    node.told -= times;
    if (node.told != 0)
        return;
    const auto known = numbers_.find(node.path);
    if (known != numbers_.end() && known->second == number)
        numbers_.erase(known);
    nodes_.erase(number);
}

void Nodes::remove(const std::string& path)
{
    for (auto known = numbers_.begin(); known != numbers_.end();)
        known = is_at_or_below(known->first, path) ? numbers_.erase(known) : std::next(known);
}

void Nodes::rename(const std::string& from, const std::string& to)
{
    remove(to);
    std::unordered_map<std::string, fuse_ino_t> moved;
    for (const auto& [path, number] : numbers_)
        if (is_at_or_below(path, from))
            moved.emplace(to + path.substr(from.size()), number);
    remove(from);
    for (const auto& [path, number] : moved)
        nodes_.at(number).path = path;
    numbers_.merge(moved);
}

bool Nodes::drop(const std::string& path)
{
    const auto known = numbers_.find(path);
    const bool was_cached = known != numbers_.end() && nodes_.at(known->second).cached;
    for (auto& [number, node] : nodes_)
        if (is_at_or_below(node.path, path))
            node.cached = false;
    return was_cached;
}

} // namespace faultfs
