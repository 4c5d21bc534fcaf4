#include "stray_argument.h"

#include <algorithm>
#include <cstddef>

namespace
{

bool is_option(const std::string& argument)
{
    return argument.rfind('-', 0) == 0 && argument != "-";
}

// Whether a stray argument stands right behind a disk: "--disk A B" or "--disk=A B".
bool follows_disk(const std::vector<std::string>& arguments)
{
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const bool joined = arguments[i].rfind("--disk=", 0) == 0;
        const std::size_t next = joined ? i + 1 : i + 2;
        if ((joined || arguments[i] == "--disk") && next < arguments.size() &&
            !is_option(arguments[next]))
            return true;
    }
    return false;
}

} // namespace

std::string describe_stray_argument(const std::vector<std::string>& arguments,
                                    const std::vector<std::string>& strays)
{
    const auto long_option =
        std::find_if(strays.begin(), strays.end(),
                     [](const std::string& argument) { return argument.rfind("--", 0) == 0; });
    if (long_option != strays.end())
        return "unknown option: " + long_option->substr(0, long_option->find('='));
    if (follows_disk(arguments))
        return "--disk takes one disk: repeat --disk for each";
    return "an argument was not expected";
}
