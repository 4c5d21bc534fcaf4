#include "pasted_line.h"

#include "log_text.h"

#include <cstddef>
#include <nlohmann/json.hpp>

namespace
{

// Without what colours text on a terminal: ESC [ parameters letter.
std::string without_colours(const std::string& line)
{
    std::string plain;
    std::size_t at = 0;
    for (std::size_t escape = line.find("\x1b["); escape != std::string::npos;
         escape = line.find("\x1b[", at)) {
        plain.append(line, at, escape - at);
        const std::size_t end = line.find_first_not_of("0123456789;", escape + 2);
        at = end == std::string::npos ? line.size() : end + 1;
    }
    return plain.append(line, at, std::string::npos);
}

std::string trimmed(const std::string& line)
{
    using namespace std::string_literals;
    const std::size_t begin = line.find_first_not_of(" \t");
    // Blanks at the end may be a value.
    const std::size_t end = line.find_last_not_of("\r\n\0"s);
    return begin == std::string::npos || end < begin ? "" : line.substr(begin, end + 1 - begin);
}

std::string without_quotation(const std::string& line)
{
    const bool is_quoted = line.size() >= 2 && line.front() == line.back() &&
                           std::string("\"'`").find(line.front()) != std::string::npos;
    return is_quoted ? line.substr(1, line.size() - 2) : line;
}

std::string message_of_json(const std::string& line)
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
    const std::string message = text_of("message") + text_of("MESSAGE") + text_of("msg");
    const std::string tag = text_of("tag");
    if (message.empty())
        return line;
    return tag.empty() ? message : tag + ": " + message;
}

} // namespace

std::string log_line(const std::string& line)
{
    return shown_message(message_of_json(without_quotation(trimmed(without_colours(line)))));
}
