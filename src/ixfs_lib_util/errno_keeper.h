// Gives errno back as it was found.
#ifndef IXFS_ERRNO_KEEPER_H
#define IXFS_ERRNO_KEEPER_H

#include <cerrno>

class ErrnoKeeper
{
public:
    ErrnoKeeper() : kept_(errno) {}
    ~ErrnoKeeper() { errno = kept_; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    int kept_;
};

#endif
