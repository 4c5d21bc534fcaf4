// ixfs-prepare: prepares a VM for instant recovery from the command line.
#include "confirm.h"
#include "dry_run.h"
#include "image_plan.h"
#include "log_output.h"
#include "options.h"
#include "requests.h"
#include "result.h"
#include "standard_streams.h"
#include "usage_error.h"

#include <ixfs_vmir.h>

#include <cerrno>
#include <chrono>
#include <exception>
#include <mutex>
#include <system_error>
#include <unistd.h>

namespace
{

enum ExitStatus { exit_success = 0, exit_failure = 1, exit_bad_usage = 2 };

void complain(const std::string& text)
{
    write_all(STDERR_FILENO, "ixfs-prepare: " + text + "\n");
}

ExitStatus print(const std::string& text)
{
    if (write_all(STDOUT_FILENO, text))
        return exit_success;
    complain("standard output: " + std::generic_category().message(errno));
    return exit_failure;
}

LogOutput log_output{LogStyle{}};
LogContext log_context;

void log_line(int severity, const char* tag, const char* message) noexcept
{
    static std::mutex one_at_a_time;
    try {
        const std::string line = log_output.format(std::chrono::system_clock::now(), severity, tag,
                                                   message, log_context);
        const std::lock_guard<std::mutex> guard(one_at_a_time);
        write_all(STDERR_FILENO, line);
    } catch (const std::exception&) {
        // A callback must not throw, and there is nowhere left to say that a line was lost.
    }
}

Result prepare(const Request& request)
{
    MountCreds creds{};
    creds.server = request.server.c_str();
    creds.port = request.port;
    creds.schedule_type = request.schedule_type;
    creds.timeout = request.timeout;
    creds.mount_cred = request.credentials.mount.c_str();
    creds.unmount_cred = request.credentials.unmount.c_str();
    creds.backup_id = request.backup_id;
    LogInfo log{nullptr, log_line};
    std::vector<std::string> disks = request.disks;

    Result result;
    result.server = request.server;
    result.backup_id = request.backup_id;
    try {
        const ec_status status = ixfs_prepare_vmir(creds, disks, &log, result.configuration,
                                                   result.paths, request.new_disk_uuids);
        result.status = status;
        result.status_text = ixfs_status_text(status);
    } catch (const std::exception& error) { // no status of the library's: memory, random source
        result.status = EC_SYSTEM_ERROR;
        result.status_text = error.what();
    }
    return result;
}

ExitStatus report(const Result& result, bool json)
{
    const bool prepared = result.status == EC_OK;
    if (!prepared)
        write_all(STDERR_FILENO,
                  log_output.format_own(std::chrono::system_clock::now(), IXFS_LOG_ERR,
                                        format_failure(result), log_context));
    ExitStatus printed = exit_success;
    if (json)
        printed = print(format_json(result));
    else if (prepared)
        printed = print(format_text(result));
    return prepared ? printed : exit_failure;
}

ExitStatus dry_run(const std::vector<Request>& requests, const Options& options)
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

ExitStatus run(int argc, char** argv)
{
    const Options options = parse_options(argc, argv);
    if (!options.information.empty())
        return print(options.information);
    const std::vector<Request> requests = read_requests(options);
    if (options.dry_run)
        return dry_run(requests, options);
    const Request& request = requests.front();
    if (request.remove_view && !options.yes &&
        !confirm("Remove " + plan_image(request).view_folder + " with all that is in it?"))
        return exit_failure;
    if (request.remove_view || !options.from.empty())
        throw UsageError("not yet");
    log_output = LogOutput(options.log);
    log_context = {request.server, request.backup_id};
    return report(prepare(request), options.json);
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
