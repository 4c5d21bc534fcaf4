#include "explanation.h"

#include "begins_with.h"
#include "text_wrap.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>

namespace
{

constexpr std::size_t indentation = 12;

bool ends_with(std::string_view text, std::string_view end)
{
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

// Whether the words are the same but for capitals.
bool is_same_word(std::string_view left, std::string_view right)
{
    const auto is_same = [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) ==
               std::tolower(static_cast<unsigned char>(b));
    };
    return std::equal(left.begin(), left.end(), right.begin(), right.end(), is_same);
}

// "label:      text", wrapped.
std::string field(std::string_view label, std::string_view text)
{
    std::string line(label);
    line += ':';
    line.resize(std::max(line.size() + 1, indentation), ' ');
    return line + wrap(text, indentation) + '\n';
}

std::string_view severity_text(int severity)
{
    constexpr std::string_view texts[] = {"error", "warning", "information"};
    return texts[severity];
}

bool parse(std::string_view digits, int& number)
{
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, number);
    return error == std::errc() && stop == end;
}

const StatusRow* status_of(int number)
{
    const std::vector<StatusRow>& rows = status_rows();
    const auto found = std::find_if(rows.begin(), rows.end(),
                                    [&](const StatusRow& row) { return row.number == number; });
    return found != rows.end() ? &*found : nullptr;
}

// By what stands before it, as the document of log lines has it.
bool is_errno(std::string_view before)
{
    const auto ends = [before](std::string_view end) {
        return ends_with(before, end);
    };
    return ends("error = ") || ends("error: ") || ends("errno = ") || ends(", err ") || ends(" - ");
}

std::string number_with_name(const LogRow& row, const std::string& digits, std::string_view before)
{
    int number = 0;
    if (!parse(digits, number))
        return digits;
    if (row.has_status) {
        const StatusRow* const status = status_of(number);
        return status == nullptr ? digits
                                 : digits + " (" + std::string(status->name) + ": " +
                                       std::string(status->text) + ")";
    }
    const char* const name = number > 0 && is_errno(before) ? strerrorname_np(number) : nullptr;
    return name == nullptr ? digits : digits + " (" + name + ": " + strerrordesc_np(number) + ")";
}

std::string advice_of(const LogRow& row)
{
    return row.advice.empty() ? "normal; nothing to do" : std::string(row.advice);
}

std::string others(const std::vector<LineMatch>& matches)
{
    constexpr std::size_t most = 4;
    std::string text;
    for (std::size_t i = 1; i < std::min(matches.size(), most); ++i)
        text +=
            field("or", std::string(matches[i].row->text) + " of " +
                            std::string(matches[i].row->tags) + ": " + advice_of(*matches[i].row));
    if (matches.size() > most)
        text += field("or", "one of " + std::to_string(matches.size() - most) +
                                " more; paste more of the line");
    return text;
}

} // namespace

const StatusRow* find_status(std::string_view subject)
{
    int number = 0;
    if (parse(subject, number))
        return status_of(number);
    for (const StatusRow& row : status_rows()) {
        if (is_same_word(row.name, subject) || row.text == subject)
            return &row;
    }
    return nullptr;
}

const StatusRow* find_status_in(std::string_view line)
{
    const std::size_t at = std::min(line.find("status"), line.find("Status"));
    if (at == std::string_view::npos)
        return nullptr;
    line.remove_prefix(at + std::string_view("status").size());
    const std::size_t begin = line.find_first_not_of(" \":=");
    if (begin == 0 || begin == std::string_view::npos)
        return nullptr;
    line.remove_prefix(begin);
    return find_status(line.substr(0, line.find_first_not_of("0123456789")));
}

std::string explain(const StatusRow& status)
{
    return field("status", std::to_string(status.number) + " " + std::string(status.name) + ": " +
                               std::string(status.text)) +
           field("from", status.from) + field("what to do", status.advice);
}

std::string explain(const std::vector<LineMatch>& matches, int count)
{
    const LineMatch& best = matches.front();
    const LogRow& row = *best.row;
    std::string text = "line:       " + message_of(best) + '\n';
    if (count > 1)
        text += field("seen", std::to_string(count) + " times, with other values perhaps");
    text += field("from", std::string(row.tags) + ", severity " + std::to_string(row.severity) +
                              " (" + std::string(severity_text(row.severity)) + "); " +
                              std::string(row.section) +
                              (row.in_job_log ? "; also in the job log" : ""));
    // Another row of another text fits only by chance where this one fits as a whole.
    const bool is_sure = best.is_whole && best.names_tag;
    return text + field("what to do", advice_of(row)) + (is_sure ? "" : others(matches));
}

std::string message_of(const LineMatch& match)
{
    return match.pattern->filled(match.agreement,
                                 [&](const std::string& digits, std::string_view before) {
                                     return number_with_name(*match.row, digits, before);
                                 });
}

bool tells_of_problem(const LogRow& row)
{
    if (begins_with(row.text, "ERR -") || begins_with(row.text, "WRN -"))
        return true;
    return begins_with(row.text, "INF -") &&
           row.text.find(" failed, error = ") != std::string_view::npos;
}

bool tells_of_waiting(const LogRow& row)
{
    return row.text.find("waiting for") != std::string_view::npos && !row.advice.empty();
}
