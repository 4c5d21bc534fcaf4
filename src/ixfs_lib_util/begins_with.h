// Whether a text begins with another one.
#ifndef IXFS_BEGINS_WITH_H
#define IXFS_BEGINS_WITH_H

#include <string_view>

inline bool begins_with(std::string_view text, std::string_view front)
{
    return text.substr(0, front.size()) == front;
}

#endif
