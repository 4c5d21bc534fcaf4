// ixfs-prepare: prepares a VM for instant recovery from the command line.
#include "credentials.h"
#include "log_lines.h"
#include "options.h"
#include "result.h"
#include "standard_streams.h"
#include "usage_error.h"

#include <ixfs_vmir.h>

#include <cerrno>
#include <exception>
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

Result prepare(const Options& options, const Credentials& credentials)
{
    MountCreds creds{};
    creds.server = options.server.c_str();
    creds.port = options.port;
    creds.schedule_type = options.schedule_type;
    creds.timeout = options.timeout;
    creds.mount_cred = credentials.mount.c_str();
    creds.unmount_cred = credentials.unmount.c_str();
    creds.backup_id = options.backup_id;
    LogInfo log{nullptr, log_to_standard_error(options.quiet)};
    std::vector<std::string> disks = options.disks;

    Result result;
    try {
        const ec_status status = ixfs_prepare_vmir(creds, disks, &log, result.configuration,
                                                   result.paths, options.new_disk_uuids);
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
        complain("preparation failed with status " + std::to_string(result.status) + ": " +
                 result.status_text);
    ExitStatus printed = exit_success;
    if (json)
        printed = print(format_json(result));
    else if (prepared)
        printed = print(format_text(result));
    return prepared ? printed : exit_failure;
}

ExitStatus run(int argc, char** argv)
{
    const Options options = parse_options(argc, argv);
    if (!options.information.empty())
        return print(options.information);
    return report(prepare(options, read_credentials(options)), options.json);
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
