// The short text of each status.
#ifndef IXFS_STATUS_TEXT_H
#define IXFS_STATUS_TEXT_H

// Indexed by status like an array. Any int may be looked up: null where the library has no such
// status.
class StatusTexts
{
public:
    const char* operator[](int status) const noexcept;
};

constexpr StatusTexts errmsgstr;

#endif
