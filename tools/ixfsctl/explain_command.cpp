#include "explain_command.h"

#include "console.h"

#include <ixfs.h>

#include <charconv>
#include <memory>
#include <string>

namespace
{

ExitStatus explain(const std::string& subject)
{
    int number = 0;
    const char* const end = subject.data() + subject.size();
    const auto [stop, error] = std::from_chars(subject.data(), end, number);
    const char* const text =
        error == std::errc() && stop == end ? ixfs_status_text(number) : nullptr;
    if (text != nullptr)
        return print(subject + ": " + text + "\n");
    complain("no status: " + subject);
    return exit_failure;
}

} // namespace

void add_explain_command(CLI::App& app, Action& action)
{
    CLI::App* const command =
        app.add_subcommand("explain", "Tell what a status or a log line means");
    const auto subject = std::make_shared<std::string>();
    command->add_option("subject", *subject, "A status such as 29")->required();
    command->callback([&action, subject] {
        action = [subject] {
            return explain(*subject);
        };
    });
}
