// Base names that are unique within a list.
#ifndef IXFS_FUZZ_REFERENCE_BASE_NAMES_H
#define IXFS_FUZZ_REFERENCE_BASE_NAMES_H

#include <algorithm>
#include <string>
#include <vector>

namespace reference
{

inline bool is_in(const std::vector<std::string>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

// Returns `name`, or the first of "name(1)", "name(2)", ... that is not taken.
inline std::string free_name(const std::vector<std::string>& taken, const std::string& name)
{
    std::string candidate = name;
    for (int number = 1; is_in(taken, candidate); ++number)
        candidate = name + "(" + std::to_string(number) + ")";
    return candidate;
}

inline std::vector<std::string> unique_names(const std::vector<std::string>& names)
{
    std::vector<std::string> given;
    for (const std::string& name : names)
        given.push_back(free_name(given, name));
    return given;
}

} // namespace reference

#endif
