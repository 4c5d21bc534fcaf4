// Unique base names for the disks of one view.
#ifndef IXFS_BASE_NAMES_H
#define IXFS_BASE_NAMES_H

#include "ixfs_vmir.h"

#include <string>
#include <unordered_map>

// Does what ensureUniquenessOfBasename does, for a whole list: it remembers which numbers of a name
// are taken, so that a list of equal names costs no more than one of different names.
class BaseNames
{
public:
    bool make_unique(LmfString& base_name);

private:
    std::unordered_map<std::string, unsigned long> last_numbers_; // of all names in use
};

#endif
