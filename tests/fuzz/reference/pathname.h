// Paths: joining, and splitting into segments.
#ifndef IXFS_FUZZ_REFERENCE_PATHNAME_H
#define IXFS_FUZZ_REFERENCE_PATHNAME_H

#include <string>
#include <vector>

namespace reference
{

inline std::string join(const std::string& path, const std::string& name)
{
    return path.empty() ? name : path + "/" + name;
}

// The names between the separators. The first keeps the separators before it.
inline std::vector<std::string> segments(const std::string& path)
{
    std::vector<std::string> found;
    std::string segment;
    bool has_name = false;
    for (const char byte : path + "/") {
        if (byte != '/') {
            segment += byte;
            has_name = true;
        } else if (has_name) {
            found.push_back(segment);
            segment.clear();
            has_name = false;
        } else if (found.empty()) {
            segment += byte;
        }
    }
    if (found.empty() && !path.empty())
        found.push_back(path); // the root
    return found;
}

// The paths of the folders that lead to `path`, itself the last.
inline std::vector<std::string> prefixes(const std::string& path)
{
    std::vector<std::string> found;
    std::string prefix;
    for (const std::string& segment : segments(path)) {
        prefix = join(prefix, segment);
        found.push_back(prefix);
    }
    return found;
}

} // namespace reference

#endif
