#include "json_text.h"

namespace
{

using json = nlohmann::ordered_json;

std::string dump(json& object, int indent)
{
    object["lossy"] = false;
    try {
        return object.dump(indent) + "\n";
    } catch (const json::type_error&) {
        object["lossy"] = true;
        return object.dump(indent, ' ', false, json::error_handler_t::replace) + "\n";
    }
}

} // namespace

std::string indented(json object)
{
    return dump(object, 2);
}

std::string on_one_line(json object)
{
    return dump(object, -1);
}
