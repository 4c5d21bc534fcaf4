#include "explain_command.h"

#include "console.h"

#include <iostream>
#include <string>

namespace
{

ExitStatus explain_subject(const std::string& subject)
{
    if (const StatusRow* const status = find_status(subject))
        return print(explain(*status));
    const std::string line = shown_message(plain_line(subject));
    const std::vector<LineMatch> matches = find_rows(line);
    if (!matches.empty())
        return print(explain(matches));
    if (const StatusRow* const status = find_status_in(line))
        return print(explain(*status));
    complain("neither a status nor a log line of libixfs: " + line);
    return exit_failure;
}

ExitStatus explain_standard_input()
{
    LogDigest digest;
    for (std::string line; std::getline(std::cin, line);)
        digest.add(shown_message(plain_line(line)));
    if (digest.knows_any())
        return print(digest.text());
    complain("no line of standard input is of libixfs");
    return exit_failure;
}

} // namespace

ExitStatus explain_on_request(const std::string& subject)
{
    return subject == "-" ? explain_standard_input() : explain_subject(subject);
}
