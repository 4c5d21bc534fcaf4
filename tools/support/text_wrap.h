// Text in lines that fit a terminal.
#ifndef IXFS_TOOLS_TEXT_WRAP_H
#define IXFS_TOOLS_TEXT_WRAP_H

#include <cstddef>
#include <string>
#include <string_view>

// Breaks `text` at blanks into lines of at most `width` characters, and begins each line but the
// first with `indent` blanks. A longer word gets a line of its own. Newlines in `text` stay.
std::string wrap(std::string_view text, std::size_t indent, std::size_t width = 80);

#endif
