// libixfs: identities of virtual disks.
#ifndef IXFS_UUID_H
#define IXFS_UUID_H

#include "ixfs.h"

#include <string>

// Returns a fresh random UUID as disk descriptors hold it: 47 characters, sixteen lower-case
// hexadecimal bytes in two groups of eight, with blanks between the bytes and "-" between the
// groups. Throws what the system's random source throws, and std::bad_alloc. Logs nothing. Any
// thread.
IXFS_API std::string getVmdkUuid();

#endif
