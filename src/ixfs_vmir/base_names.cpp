#include "base_names.h"

namespace
{

// Takes `base_name`, or else the first free one of "<base_name>(<n>)" with n above `number`, which
// becomes n. Returns whether the name had to be changed.
bool take_free_name(std::set<LmfString>& used, LmfString& base_name, unsigned long& number)
{
    if (used.insert(base_name).second)
        return false;
    LmfString candidate = base_name;
    do
        candidate = base_name.text() + '(' + std::to_string(++number) + ')';
    while (!used.insert(candidate).second);
    base_name = candidate;
    return true;
}

} // namespace

bool ensureUniquenessOfBasename(std::set<LmfString>& usedNames, LmfString& baseName)
{
    unsigned long number = 0;
    return take_free_name(usedNames, baseName, number);
}

bool BaseNames::make_unique(LmfString& base_name)
{
    return take_free_name(used_, base_name, last_numbers_[base_name]);
}
