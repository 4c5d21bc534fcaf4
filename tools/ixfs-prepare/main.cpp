// ixfs-prepare: prepares VMs for instant recovery from the command line.
#include "confirm.h"
#include "console.h"
#include "dry_run.h"
#include "image_plan.h"
#include "options.h"
#include "report.h"
#include "requests.h"
#include "standard_streams.h"
#include "supervisor.h"
#include "usage_error.h"
#include "voice.h"

#include <cerrno>
#include <exception>
#include <optional>
#include <system_error>
#include <unistd.h>

namespace
{

void complain(const std::string& text)
{
    write_all(STDERR_FILENO, "ixfs-prepare: " + text + "\n");
}

int print(const std::string& text)
{
    if (write_all(STDOUT_FILENO, text))
        return exit_success;
    complain("standard output: " + std::generic_category().message(errno));
    return exit_failure;
}

int dry_run(const std::vector<Request>& requests, const Options& options)
{
    std::string text;
    for (const Request& request : requests) {
        if (!options.from.empty())
            text += format_dry_run_json_line(request);
        else
            text += options.json ? format_dry_run_json(request) : format_dry_run(request);
    }
    return print(text);
}

bool is_agreed(const Request& request)
{
    return confirm("Remove " + plan_image(request).view_folder + " with all that is in it?");
}

// What the supervisor ended with.
struct Ending {
    int signal;
    bool gave_up;
};

Ending supervise(const std::vector<Request>& requests, int jobs, Console& console,
                 const Voice& voice, Outlet& output, const Supervisor::OnResult& on_result)
{
    Supervisor supervisor(console, voice, output);
    supervisor.run(requests, jobs, on_result);
    return {supervisor.signal(), supervisor.gave_up()};
}

int work_on_list(const std::vector<Request>& requests, const Options& options, Console& console,
                 const Voice& voice)
{
    Report report(options, voice);
    const Ending ending = supervise(requests, options.jobs, console, voice, report.output(),
                                    [&](const Result& result) { report.take(result); });
    if (!ending.gave_up)
        report.summarize(requests.size());
    return report.finish(ending.signal);
}

int work_on_one(const std::vector<Request>& requests, const Options& options, Console& console,
                const Voice& voice)
{
    Report report(options, voice);
    std::optional<Result> result;
    const Ending ending = supervise(requests, 1, console, voice, report.output(),
                                    [&](const Result& single) { result = single; });
    console.finish(); // before the result, if both go to one place
    if (result)
        report.take(*result);
    return report.finish(ending.signal);
}

int run(int argc, char** argv)
{
    const Options options = parse_options(argc, argv);
    if (!options.information.empty())
        return print(options.information);
    const std::vector<Request> requests = read_requests(options);
    if (options.dry_run)
        return dry_run(requests, options);
    if (options.request.remove_view && !options.yes && !is_agreed(requests.front()))
        return exit_failure;
    Console console(!options.log.quiet);
    const Voice voice(console, options.log);
    return options.from.empty() ? work_on_one(requests, options, console, voice)
                                : work_on_list(requests, options, console, voice);
}

} // namespace

int main(int argc, char** argv)
{
    secure_standard_streams();
    try {
        return run(argc, argv);
    } catch (const UsageError& error) {
        complain(error.what() + std::string("\nRun with --help for more information."));
        return exit_bad_usage;
    } catch (const std::exception& error) {
        complain(error.what());
        return exit_failure;
    }
}
