#include "status_command.h"

#include "console.h"
#include "status_report.h"

#include <chrono>

ExitStatus show_status(const StatusOptions& options)
{
    const HostState host = look_at_host();
    const std::vector<Finding> findings =
        find_what_is_wrong(host, std::chrono::seconds(options.slow_after));
    const auto report = options.json          ? status_json
                        : options.openmetrics ? status_metrics
                                              : status_text;
    const ExitStatus printed = print(report(host, findings));
    return findings.empty() ? printed : exit_failure;
}

} // namespace

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
