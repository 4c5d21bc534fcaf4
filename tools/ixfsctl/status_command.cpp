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
