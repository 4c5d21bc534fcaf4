// What the caller of the program got wrong; the text says what to do about it.
#ifndef IXFS_TOOLS_USAGE_ERROR_H
#define IXFS_TOOLS_USAGE_ERROR_H

#include <stdexcept>

class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

#endif
