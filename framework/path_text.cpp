#include "path_text.h"

std::string joined_path(std::string_view path, std::string_view component)
{
    std::string joined;
    joined.reserve(path.size() + 1 + component.size());
    joined += path;
    if (!path.empty())
        joined += path_separator;
    joined += component;
    return joined;
}

std::string_view last_segment_of(std::string_view path)
{
    const std::size_t end = path.find_last_not_of(path_separator);
    if (end == std::string_view::npos)
        return path; // nothing, or nothing but separators: the root
    path = path.substr(0, end + 1);
    const std::size_t slash = path.rfind(path_separator);
    const bool is_the_first = path.find_first_not_of(path_separator) > slash;
    return slash == std::string_view::npos || is_the_first ? path : path.substr(slash + 1);
}
