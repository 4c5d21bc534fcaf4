#include "log_catalogue.h"

#include <algorithm>
#include <fstream>
#include <numeric>
#include <regex>
#include <set>
#include <stdexcept>

namespace
{

constexpr std::size_t longest_message = 2047; // longer ones are cut

const std::regex table_line(R"(^\|.*)");
const std::regex table_head(R"(^\| tag \| sev\. \| text \| .* \||\|(---\|)+)");
const std::regex
    table_row(R"(^\| (`[^`|]+`(?:, `[^`|]+`)*) \| ([012]) \| `([^`|]+)` \|( [^|]+)? \|)");
const std::regex quoted_tag(R"(`([^`]+)`)");

bool begins_with(std::string_view text, std::string_view front)
{
    return text.substr(0, front.size()) == front;
}

// Returns 0 where the text does not begin with a decimal number.
std::size_t length_of_number(std::string_view text)
{
    const std::size_t sign = begins_with(text, "-") ? 1 : 0;
    const std::size_t end = std::min(text.find_first_not_of("0123456789", sign), text.size());
    return end > sign ? end : 0;
}

} // namespace

LogCatalogue::LogCatalogue(const std::string& path)
{
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error(path + " cannot be read");
    for (std::string line; std::getline(file, line);) {
        if (std::regex_match(line, table_line) && !std::regex_match(line, table_head))
            add(line);
    }
}

const LogCatalogue& LogCatalogue::of_the_project()
{
    static const LogCatalogue catalogue(IXFS_LOG_CATALOGUE);
    return catalogue;
}

void LogCatalogue::add(const std::string& row)
{
    std::smatch cells;
    if (!std::regex_match(row, cells, table_row))
        throw std::runtime_error("not a row of the catalogue of log lines: " + row);
    const std::string tags = cells[1];
    const bool in_job_log = cells[4].str().find("**job log**") != std::string::npos;
    const Pieces pieces = pieces_of(cells[3].str() + "\n");
    std::size_t fixed = 0;
    for (const Piece& piece : pieces)
        fixed += piece.text.size();
    for (std::sregex_iterator tag(tags.begin(), tags.end(), quoted_tag), end; tag != end; ++tag)
        rows_[(*tag)[1]].push_back({row, cells[3], std::stoi(cells[2]), pieces, fixed, in_job_log});
}

LogCatalogue::Pieces LogCatalogue::pieces_of(const std::string& text)
{
    static const std::regex value("%(s|d|ld)");
    Pieces pieces;
    auto rest = text.begin();
    for (std::sregex_iterator found(text.begin(), text.end(), value), end; found != end; ++found) {
        pieces.push_back({{rest, (*found)[0].first}, (*found)[1] == "s" ? 's' : 'd'});
        rest = (*found)[0].second;
    }
    pieces.push_back({{rest, text.end()}, '\0'});
    return pieces;
}

bool LogCatalogue::matches(const Pieces& pieces, std::string_view message)
{
    return matches_from(pieces.data(), message, message.size() == longest_message);
}

bool LogCatalogue::matches_from(const Piece* piece, std::string_view message, bool is_cut)
{
    if (is_cut && begins_with(piece->text, message))
        return true;
    if (!begins_with(message, piece->text))
        return false;
    message.remove_prefix(piece->text.size());
    if (piece->value == '\0')
        return message.empty();
    if (piece->value == 'd') {
        const std::size_t length = length_of_number(message);
        return length > 0 && matches_from(piece + 1, message.substr(length), is_cut);
    }
    for (std::size_t length = 0; length <= message.size(); ++length) {
        if (matches_from(piece + 1, message.substr(length), is_cut))
            return true;
    }
    return false;
}

const LogCatalogue::Row* LogCatalogue::closest(std::string_view tag, std::string_view message) const
{
    const auto found = rows_.find(tag);
    if (found == rows_.end())
        return nullptr;
    const Row* closest = nullptr;
    for (const Row& row : found->second) {
        if ((closest == nullptr || row.fixed > closest->fixed) && matches(row.pieces, message))
            closest = &row;
    }
    return closest;
}

bool LogCatalogue::has(int severity, std::string_view tag, std::string_view message) const
{
    const Row* const row = closest(tag, message);
    return row != nullptr && row->severity == severity;
}

std::string_view LogCatalogue::text_for(std::string_view tag, std::string_view message) const
{
    const Row* const row = closest(tag, message);
    return row != nullptr ? std::string_view(row->text) : std::string_view();
}

bool LogCatalogue::has_in_job_log(std::string_view message) const
{
    for (const auto& [tag, rows] : rows_) {
        for (const Row& row : rows) {
            if (row.in_job_log && matches(row.pieces, message))
                return true;
        }
    }
    return false;
}

std::string LogCatalogue::rows_with_text_of(std::string_view message) const
{
    std::set<std::string> sources; // a row of several tags is there for each
    for (const auto& [tag, rows] : rows_) {
        for (const Row& row : rows) {
            if (matches(row.pieces, message))
                sources.insert(row.source + "\n");
        }
    }
    return std::accumulate(sources.begin(), sources.end(), std::string());
}
