#include "options.h"

#include "clean_command.h"
#include "console.h"
#include "explain_command.h"
#include "help_format.h"
#include "status_command.h"
#include "usage_error.h"

#include <CLI/CLI.hpp>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr const char* description =
    "Shows what libixfs has mounted and locked on this host, cleans up what it left behind, and "
    "explains what it says.";

constexpr const char* footer_text =
    "Exit status: 0 all is well, 1 something is wrong or unknown, 2 bad usage.\n"
    "ixfsctl SUBCOMMAND --help tells more.";

constexpr const char* explain_description =
    "Tell what a status or a log line of libixfs means, and what to do. The line may be whole or a "
    "part, and may have time, host, program or JSON around it.";

// A path below the mount base.
std::string check_server(const std::string& server)
{
    const std::string path = "/" + server + "/";
    for (const char* const segment : {"//", "/./", "/../"}) {
        if (path.find(segment) != std::string::npos)
            return "must be the name of a server";
    }
    return "";
}

std::string joined(const std::vector<std::string>& words)
{
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

void add_status_command(CLI::App& app, Action& action)
{
    CLI::App* const command =
        app.add_subcommand("status", "Show what is mounted, who holds what, and what is wrong");
    const auto options = std::make_shared<StatusOptions>();
    CLI::Option* const json = command->add_flag("--json", options->json, "Print it as JSON");
    command
        ->add_flag("--openmetrics", options->openmetrics,
                   "Print figures for a node exporter's text file collector; not with --json")
        ->excludes(json);
    command
        ->add_option("--slow-after", options->slow_after,
                     "Seconds after which a running helper counts as wrong; 120 if not given")
        ->type_name("SECONDS");
    command->footer(
        "Changes nothing.\n\nExit status: 0 nothing is wrong, 1 something is, 2 bad usage.");
    command->callback([&action, options] {
        action = [options] {
            return show_status(*options);
        };
    });
}

void add_clean_command(CLI::App& app, Action& action)
{
    CLI::App* const command = app.add_subcommand("clean", "Take away what killed processes left");
    const auto options = std::make_shared<CleanOptions>();
    command
        ->add_option("--server", options->server,
                     "Only the helpers, mounts and directories of this media server")
        ->type_name("NAME")
        ->check(check_server);
    command->add_flag("--dry-run", options->dry_run, "Only say what would be done");
    command->add_flag("--yes", options->yes, "Do not ask");
    command->footer("Ends helpers that nobody waits for, takes off mounts that nobody uses, and "
                    "removes empty mount directories and unused locks. Deletes no file.\n\n"
                    "Exit status: 0 nothing is left, 1 something had to be left, 2 bad usage.");
    command->callback([&action, options] {
        action = [options] {
            return clean(*options);
        };
    });
}

void add_explain_command(CLI::App& app, Action& action)
{
    CLI::App* const command = app.add_subcommand("explain", explain_description);
    const auto words = std::make_shared<std::vector<std::string>>();
    command
        ->add_option("subject", *words,
                     "A number, name or text of a status; a log line; "
                     "or - to read a log from standard input, of which "
                     "the lines that tell of a problem are explained")
        ->required()
        ->type_name("STATUS|LINE|-");
    command->footer("Exit status: 0 it is explained, 1 it is unknown, 2 bad usage.");
    command->callback([&action, words] {
        action = [subject = joined(*words)] {
            return explain_on_request(subject);
        };
    });
}

// The text that the caller asked for, where nothing else is to be done.
Action show(const std::string& text)
{
    return [text] {
        return print(text);
    };
}

// CLI11 calls a subcommand that it does not know a missing one.
std::string what_is_unknown(const CLI::App& app, const CLI::ParseError& error)
{
    const std::vector<std::string> unknown = app.remaining();
    if (unknown.empty())
        return error.what();
    return (unknown[0][0] == '-' ? "unknown option: " : "unknown subcommand: ") + unknown[0];
}

} // namespace

void add_options(CLI::App& app, Action& action)
{
    app.name("ixfsctl");
    app.description(description);
    app.formatter(std::make_shared<HelpFormat>());
    app.set_version_flag("--version", "ixfsctl " IXFSCTL_VERSION);
    app.require_subcommand(1);
    add_status_command(app, action);
    add_clean_command(app, action);
    add_explain_command(app, action);
    app.footer(footer_text); // now, so that the subcommands do not take it over
}

Action parse_options(int argc, char** argv)
{
    Action action;
    CLI::App app;
    add_options(app, action);
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        return show(app.help());
    } catch (const CLI::CallForVersion& version) {
        return show(version.what() + std::string("\n"));
    } catch (const CLI::ParseError& error) {
        throw UsageError(what_is_unknown(app, error));
    }
    return action;
}
