#include "document_rows.h"

#include <fstream>
#include <regex>
#include <stdexcept>

namespace
{

const std::regex heading(R"(## (.*))");
const std::regex line_below_head(R"(\|(---\|)+)");

std::vector<std::string> read_lines(const std::string& path)
{
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    if (lines.empty())
        throw std::runtime_error(path + ": cannot be read");
    return lines;
}

bool is_head(const std::vector<std::string>& lines, std::size_t i)
{
    return std::regex_match(lines[i], line_below_head) ||
           (i + 1 < lines.size() && std::regex_match(lines[i + 1], line_below_head));
}

} // namespace

std::vector<DocumentRow> read_rows(const std::string& path, const std::string& form)
{
    const std::regex row(form);
    const std::vector<std::string> lines = read_lines(path);
    std::vector<DocumentRow> rows;
    std::string section;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        std::smatch parts;
        if (std::regex_match(lines[i], parts, heading))
            section = parts[1];
        if (lines[i].rfind('|', 0) != 0 || is_head(lines, i))
            continue;
        if (!std::regex_match(lines[i], parts, row))
            throw std::runtime_error(path + ":" + std::to_string(i + 1) +
                                     ": not a row of this table: " + lines[i]);
        rows.push_back({section, {parts.begin() + 1, parts.end()}});
    }
    if (rows.empty())
        throw std::runtime_error(path + ": has no table");
    return rows;
}

std::string without_marks(const std::string& text)
{
    static const std::regex link(R"(\[([^\]]+)\]\(([^)]+)\))");
    static const std::regex emphasis(R"(\*+([^*]+)\*+)");
    return std::regex_replace(std::regex_replace(text, link, "$1 (docs/$2)"), emphasis, "$1");
}
