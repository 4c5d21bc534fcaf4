// Making base names unique. The input is a list of names, one a line.
#include "check.h"
#include "fuzz_target.h"

#include "reference/base_names.h"

#include "ixfs_vmir.h"

#include <set>

namespace
{

constexpr std::size_t most_names = 64;

LmfString string_of(const std::string& text)
{
    return {text.data(), text.size(), StringConverter::getUtf8CodePage(), 0};
}

// Gives each name out in turn, and looks at what each call says of itself.
std::vector<std::string> make_unique(const std::vector<std::string>& names)
{
    std::set<LmfString> used;
    std::vector<std::string> given;
    for (const std::string& name : names) {
        LmfString base_name = string_of(name);
        const bool changed = ensureUniquenessOfBasename(used, base_name);
        given.push_back(base_name.text());
        require_equal(changed, given.back() != name, "whether the name was changed");
        require_equal(used.size(), given.size(), "number of used names");
        require_equal(used.count(base_name), 1U, "the name is among the used ones");
    }
    return given;
}

void check(const std::vector<std::string>& names)
{
    const std::vector<std::string> given = make_unique(names);
    require_equal(given, reference::unique_names(names), "names");
    require_equal(make_unique(names), given, "names of the same list");
    require_equal(make_unique(given), given, "names that are unique already");
    for (std::size_t i = 0; i < names.size(); ++i)
        require(given[i].compare(0, names[i].size(), names[i]) == 0, "a name keeps its beginning");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    check(split(bytes_of(data, size), "\n", most_names));
    return 0;
}
