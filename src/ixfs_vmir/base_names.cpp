#include "base_names.h"

#include <utility>

namespace
{

// Puts the first free one of "<base_name>(<n>)", with n above `number`, in the name's place. `take`
// takes a name and returns whether it was free. Returns n.
template <typename Take>
unsigned long take_numbered(LmfString& base_name, unsigned long number, Take take)
{
    std::string candidate;
    do
        candidate = base_name.text() + '(' + std::to_string(++number) + ')';
    while (!take(candidate));
    base_name.text() = std::move(candidate);
    return number;
}

} // namespace

bool ensureUniquenessOfBasename(std::set<LmfString>& usedNames, LmfString& baseName)
{
    if (usedNames.insert(baseName).second)
        return false;
    LmfString name = baseName;
    take_numbered(baseName, 0, [&](const std::string& candidate) {
        name = candidate;
        return usedNames.insert(name).second;
    });
    return true;
}

bool BaseNames::make_unique(LmfString& base_name)
{
    const auto [used, is_new] = last_numbers_.try_emplace(base_name.text(), 0);
    if (is_new)
        return false;
    unsigned long& last_number = used->second; // stays in place when names are added
    last_number = take_numbered(base_name, last_number, [this](const std::string& candidate) {
        return last_numbers_.try_emplace(candidate, 0).second;
    });
    return true;
}
