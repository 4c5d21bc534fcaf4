#include "line_match.h"

#include <algorithm>
#include <cctype>
#include <tuple>

namespace
{

// A shorter part would fit too many rows, above all where most of it is taken for a value.
constexpr std::size_t shortest_part = 4;
constexpr std::size_t shortest_part_with_values = 8;

// Eight times as long as a message of the library can be. Longer lines are another program's.
constexpr std::size_t longest_line = 16384;

struct PatternOfRow {
    const LogRow* row;
    Pattern pattern;
};

const std::vector<PatternOfRow>& patterns()
{
    static const std::vector<PatternOfRow> made = [] {
        std::vector<PatternOfRow> all;
        for (const LogRow& row : log_rows())
            all.push_back({&row, Pattern(row.text)});
        return all;
    }();
    return made;
}

constexpr std::string_view blanks = " \t\r\n";
constexpr std::string_view newlines = "\r\n";

// Without what is of `unwanted` at its end.
std::string_view cut_end(std::string_view text, std::string_view unwanted)
{
    return text.substr(0, text.find_last_not_of(unwanted) + 1);
}

std::string_view trimmed(std::string_view text)
{
    text = cut_end(text, blanks);
    return text.substr(std::min(text.find_first_not_of(blanks), text.size()));
}

bool is_part_of_word(char character)
{
    return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_';
}

bool holds_word(std::string_view text, std::string_view word)
{
    for (std::size_t at = text.find(word); at != std::string_view::npos;
         at = text.find(word, at + 1)) {
        const std::size_t end = at + word.size();
        if ((at == 0 || !is_part_of_word(text[at - 1])) &&
            (end == text.size() || !is_part_of_word(text[end])))
            return true;
    }
    return false;
}

bool names_tag(std::string_view text, std::string_view tags)
{
    constexpr std::string_view separator = ", ";
    while (!tags.empty()) {
        const std::size_t end = std::min(tags.find(separator), tags.size());
        if (holds_word(text, tags.substr(0, end)))
            return true;
        tags.remove_prefix(std::min(end + separator.size(), tags.size()));
    }
    return false;
}

// A match, and where in the line it begins.
struct Candidate {
    LineMatch match;
    std::size_t begin;
};

std::vector<LineMatch> best_first(std::vector<Candidate>& candidates)
{
    const auto rank = [](const Candidate& candidate) {
        return std::make_tuple(!candidate.match.names_tag, candidate.begin,
                               -static_cast<long>(candidate.match.agreement.fixed));
    };
    std::stable_sort(candidates.begin(), candidates.end(),
                     [&](const Candidate& a, const Candidate& b) { return rank(a) < rank(b); });
    std::vector<LineMatch> matches;
    matches.reserve(candidates.size());
    for (Candidate& candidate : candidates)
        matches.push_back(std::move(candidate.match));
    return matches;
}

// The first place where the end of the line is the row's whole text.
std::vector<LineMatch> find_whole(std::string_view line)
{
    std::vector<Candidate> found;
    for (const auto& [row, pattern] : patterns()) {
        for (std::size_t at = line.find(pattern.front()); at != std::string_view::npos;
             at = line.find(pattern.front(), at + 1)) {
            if (const auto agreement = pattern.match_whole(line.substr(at))) {
                const bool tagged = names_tag(line.substr(0, at), row->tags);
                found.push_back({{row, &pattern, *agreement, true, tagged}, at});
                break;
            }
        }
    }
    return best_first(found);
}

// Where a message begins, behind what a log puts before it.
std::size_t begin_of_message(std::string_view line)
{
    std::size_t begin = std::string_view::npos;
    for (const std::string_view prefix : {"ERR - ", "WRN - ", "INF - ", "MOUNTPOINT= "})
        begin = std::min(begin, line.find(prefix));
    return begin;
}

// A line that was cut at its end.
std::vector<LineMatch> find_cut(std::string_view line)
{
    std::vector<Candidate> found;
    const std::size_t begin = begin_of_message(line);
    if (begin == std::string_view::npos)
        return {};
    for (const auto& [row, pattern] : patterns()) {
        const auto agreement = pattern.match_front(line.substr(begin));
        if (agreement && agreement->fixed >= shortest_part_with_values)
            found.push_back(
                {{row, &pattern, *agreement, false, names_tag(line.substr(0, begin), row->tags)},
                 begin});
    }
    return best_first(found);
}

// What may be a part of a message, such as all behind "tag: ".
std::vector<std::size_t> begins_of_parts(std::string_view line)
{
    std::vector<std::size_t> begins{0};
    for (const std::string_view separator : {": ", "() "}) {
        for (std::size_t at = line.find(separator); at != std::string_view::npos;
             at = line.find(separator, at + 1))
            begins.push_back(at + separator.size());
    }
    return begins;
}

std::vector<LineMatch> find_part(std::string_view line)
{
    std::vector<Candidate> found;
    for (const std::size_t begin : begins_of_parts(line)) {
        for (const auto& [row, pattern] : patterns()) {
            const auto agreement = pattern.match_part(line.substr(begin));
            if (!agreement)
                continue;
            const std::size_t shortest =
                agreement->values.empty() ? shortest_part : shortest_part_with_values;
            if (agreement->fixed >= shortest)
                found.push_back({{row, &pattern, *agreement, false,
                                  names_tag(line.substr(0, begin), row->tags)},
                                 0});
        }
        if (!found.empty())
            break;
    }
    return best_first(found);
}

} // namespace

bool holds_begin_of_message(std::string_view line)
{
    return begin_of_message(line) != std::string_view::npos;
}

std::vector<LineMatch> find_rows_of_whole_line(std::string_view line)
{
    if (line.size() > longest_line)
        return {};
    // A value at the end of the line may be empty or end in blanks; those are no strangers.
    std::vector<LineMatch> matches = find_whole(cut_end(line, newlines));
    if (matches.empty())
        matches = find_whole(trimmed(line));
    return !matches.empty() ? matches : find_cut(trimmed(line));
}

std::vector<LineMatch> find_rows(std::string_view line)
{
    std::vector<LineMatch> matches = find_rows_of_whole_line(line);
    if (!matches.empty() || line.size() > longest_line)
        return matches;
    return find_part(trimmed(line));
}
