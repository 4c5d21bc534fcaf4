// Text as the framework's string.
#ifndef IXFS_TESTS_STRING_OF_H
#define IXFS_TESTS_STRING_OF_H

#include "lmf_string.h"

#include <string>

// All bytes of `text`, in UTF-8.
inline LmfString string_of(const std::string& text)
{
    return {text.data(), text.size(), StringConverter::getUtf8CodePage(), 0};
}

#endif
