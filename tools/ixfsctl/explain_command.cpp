#include "explain_command.h"

#include "console.h"
#include "explanation.h"
#include "json_line.h"
#include "log_digest.h"
#include "log_text.h"

#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr const char* description =
    "Tell what a status or a log line of libixfs means, and what to do.\n"
    "The line may be whole or a part, and may have time, host, program or JSON\n"
    "around it.";

std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

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

void add_explain_command(CLI::App& app, Action& action)
{
    CLI::App* const command = app.add_subcommand("explain", description);
    const auto words = std::make_shared<std::vector<std::string>>();
    command
        ->add_option("subject", *words,
                     "A number, name or text of a status; a log line;\n"
                     "or - to read a log from standard input, of which\n"
                     "the lines that tell of a problem are explained")
        ->required()
        ->type_name("STATUS|LINE|-");
    command->callback([&action, words] {
        action = [subject = joined(*words)] {
            return subject == "-" ? explain_standard_input() : explain_subject(subject);
        };
    });
}
