#include "json_line.h"

#include <nlohmann/json.hpp>

std::string plain_line(const std::string& line)
{
    using nlohmann::json;
    if (line.empty() || line.front() != '{')
        return line;
    const json object = json::parse(line, nullptr, false);
    if (!object.is_object())
        return line;
    const auto text_of = [&object](const char* name) {
        const auto member = object.find(name);
        return member != object.end() && member->is_string() ? member->get<std::string>() : "";
    };
    // The journal's own lines have names in capitals.
    const std::string message = text_of("message") + text_of("MESSAGE");
    const std::string tag = text_of("tag");
    if (message.empty())
        return line;
    return tag.empty() ? message : tag + ": " + message;
}
