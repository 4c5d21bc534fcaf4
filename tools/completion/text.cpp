#include "text.h"

namespace completion
{

std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

std::string with_prefix(std::string script, const std::string& prefix)
{
    const std::string place = "@COMMAND@";
    for (std::size_t at = 0; (at = script.find(place, at)) != std::string::npos;
         at += prefix.size())
        script.replace(at, place.size(), prefix);
    return script;
}

} // namespace completion
