// Text of the C interface that a record owns.
#ifndef IXFS_OWNED_TEXT_H
#define IXFS_OWNED_TEXT_H

#include <cstdlib>
#include <cstring>
#include <memory>

struct TextDeleter {
    void operator()(char* text) const { std::free(text); }
};

// Null, or a NUL-terminated text from malloc. As large as a pointer.
using OwnedText = std::unique_ptr<char, TextDeleter>;

// Null, and sets errno, if memory is short.
inline OwnedText copy_of(const char* text)
{
    return OwnedText(strdup(text));
}

#endif
