#include "text_lines.h"

#include "begins_with.h"
#include "log_text.h"
#include "usage_error.h"

#include <cerrno>
#include <fstream>
#include <iostream>
#include <string_view>
#include <system_error>

namespace
{

constexpr std::string_view byte_order_mark = "\xef\xbb\xbf"; // some editors write it

std::vector<TextLine> lines_of(std::istream& stream, const std::string& name)
{
    std::vector<TextLine> lines;
    std::string line;
    for (unsigned long number = 1; std::getline(stream, line); ++number) {
        if (number == 1 && begins_with(line, byte_order_mark))
            line.erase(0, byte_order_mark.size());
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (!line.empty())
            lines.push_back({line, name + ", line " + std::to_string(number)});
    }
    if (stream.bad())
        throw UsageError(name + ": cannot be read");
    return lines;
}

} // namespace

std::vector<TextLine> read_lines(const std::string& name)
{
    if (name == "-")
        return lines_of(std::cin, shown_name(name));
    std::ifstream file(name);
    if (!file)
        throw UsageError(shown_name(name) + ": " + std::generic_category().message(errno));
    return lines_of(file, shown_name(name));
}

std::string shown_name(const std::string& name)
{
    return name == "-" ? "standard input" : escape_control_characters(name);
}
