#include "result.h"

#include <nlohmann/json.hpp>

using json = nlohmann::ordered_json; // members in the order that they are written in

std::string format_text(const Result& result)
{
    std::string text = "View descriptors:\n";
    for (const std::string& path : result.paths)
        text.append("  ").append(path).append("\n");
    text.append("VM configuration:\n").append(result.configuration);
    if (text.back() != '\n')
        text += '\n';
    return text;
}

std::string format_json(const Result& result)
{
    json object = {{"status", static_cast<int>(result.status)},
                   {"status_text", result.status_text},
                   {"paths", result.paths},
                   {"configuration", result.configuration},
                   {"lossy", false}};
    constexpr int indent = 2;
    try {
        return object.dump(indent) + "\n";
    } catch (const json::type_error&) { // some text is not UTF-8, as all JSON must be
        object["lossy"] = true;
        return object.dump(indent, ' ', false, json::error_handler_t::replace) + "\n";
    }
}
