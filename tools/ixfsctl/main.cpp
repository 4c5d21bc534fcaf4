// ixfsctl: what an operator wants to know and do on a host where libixfs works.
#include "command.h"
#include "console.h"
#include "explain_command.h"
#include "help_format.h"
#include "standard_streams.h"
#include "usage_error.h"

#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace
{

constexpr const char* description =
    "Shows what libixfs has mounted and locked on this host, cleans up what it left "
    "behind, and explains what it says.";

constexpr const char* footer_text =
    "Exit status: 0 all is well, 1 something is wrong or unknown, 2 bad usage.\n"
    "ixfsctl SUBCOMMAND --help tells more.";

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

Action parse(int argc, char** argv)
{
    Action action;
    CLI::App app(description, "ixfsctl");
    app.set_version_flag("--version", "ixfsctl " IXFSCTL_VERSION);
    app.require_subcommand(1);
    app.formatter(std::make_shared<HelpFormat>()); // now, so that the subcommands take it over
    add_status_command(app, action);
    add_clean_command(app, action);
    add_explain_command(app, action);
    app.footer(footer_text); // now, so that the subcommands do not take it over
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

} // namespace

int main(int argc, char** argv)
{
    secure_standard_streams();
    try {
        return parse_options(argc, argv)();
    } catch (const UsageError& error) {
        complain(error.what() + std::string("\nRun with --help for more information."));
        return exit_bad_usage;
    } catch (const std::exception& error) {
        complain(error.what());
        return exit_failure;
    }
}
