// strlcpy and strlcat, and the sizes of the fixed buffers that they and snprintf fill.
#ifndef IXFS_BOUNDED_TEXT_H
#define IXFS_BOUNDED_TEXT_H

#include <cstddef>
#include <cstring>
#ifndef IXFS_LIBC_HAS_STRLCPY
#include <bsd/string.h>
#endif

// Paths, command lines, response lines and mutex names, their NUL included.
constexpr std::size_t text_size = 1024;

// One log message, its NUL included.
constexpr std::size_t log_message_size = 2048;

inline bool is_null_or_empty(const char* text)
{
    return text == nullptr || *text == '\0';
}

#endif
