#include "explain_command.h"

#include "console.h"
#include "explanation.h"
#include "line_match.h"
#include "log_digest.h"
#include "pasted_line.h"

#include <algorithm>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

namespace
{

// The lines of a pasted text. One without the front of a message goes on where the one before it
// was wrapped.
std::vector<std::string> unwrapped(const std::string& text)
{
    std::vector<std::string> lines;
    std::istringstream input(text);
    for (std::string line; std::getline(input, line);) {
        if (lines.empty() || holds_begin_of_message(line))
            lines.push_back(line);
        else
            lines.back().append(" ").append(
                line, std::min(line.find_first_not_of(" \t"), line.size()), std::string::npos);
    }
    return lines;
}

ExitStatus explain_line(const std::string& subject)
{
    const std::string line = log_line(subject);
    if (const StatusRow* const status = find_status(line))
        return print(explain(*status));
    const std::vector<LineMatch> matches = find_rows(line);
    if (!matches.empty())
        return print(explain(matches));
    if (const StatusRow* const status = find_status_in(line))
        return print(explain(*status));
    complain("neither a status nor a log line of libixfs: " + line);
    return exit_failure;
}

ExitStatus explain_lines(const LogDigest& digest, const std::string& whose)
{
    if (digest.knows_any())
        return print(digest.text());
    complain("no line of " + whose + " is of libixfs");
    return exit_failure;
}

ExitStatus explain_standard_input()
{
    LogDigest digest;
    for (std::string line; std::getline(std::cin, line);)
        digest.add(log_line(line));
    return explain_lines(digest, "standard input");
}

ExitStatus explain_subject(const std::string& text)
{
    const std::vector<std::string> lines = unwrapped(text);
    if (lines.size() <= 1)
        return explain_line(lines.empty() ? "" : lines.front());
    LogDigest digest;
    for (const std::string& line : lines)
        digest.add(log_line(line));
    return explain_lines(digest, "the text");
}

} // namespace

ExitStatus explain_on_request(const std::string& subject)
{
    return subject == "-" ? explain_standard_input() : explain_subject(subject);
}
