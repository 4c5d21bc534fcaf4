// Paths as plain text: the rules that LmfPathname follows, for those who need no pathname.
#ifndef LMF_PATH_TEXT_H
#define LMF_PATH_TEXT_H

#include <string>
#include <string_view>

constexpr char path_separator = '/';

// Puts `component` behind a path and a "/"; behind an empty path without one.
std::string joined_path(std::string_view path, std::string_view component);

// Returns the last of a path's segments, as NameSegments numbers them; empty if there is none.
std::string_view last_segment_of(std::string_view path);

#endif
