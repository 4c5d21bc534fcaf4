#include "ixfs_vmir.h"

bool ensureUniquenessOfBasename(std::set<LmfString>& usedNames, LmfString& baseName)
{
    if (usedNames.insert(baseName).second)
        return false;
    LmfString candidate = baseName;
    unsigned long number = 0;
    do
        candidate = baseName.text() + '(' + std::to_string(++number) + ')';
    while (!usedNames.insert(candidate).second);
    baseName = candidate;
    return true;
}
