#include "options.h"

#include "option_table.h"
#include "stray_argument.h"
#include "usage_error.h"

#include <CLI/CLI.hpp>

namespace
{

void require(bool given, const std::string& option)
{
    if (!given)
        throw UsageError(option + " is required");
}

// What one VM needs. A list of VMs may say it all itself.
void check_complete(const Options& options)
{
    const Request& request = options.request;
    require(!request.server.empty(), "--server");
    require(request.port != 0, "--port");
    require(request.schedule_type != -1, "--schedule");
    require(!request.backup_id.empty(), "--backup-id");
    require(request.remove_view || !request.disks.empty() || !options.disks_from.empty(), "--disk");
    if (!options.credentials.standard_input && options.credentials.mount_file.empty())
        throw UsageError("credentials are missing: give --mount-cred-file and --unmount-cred-file, "
                         "or --creds-stdin");
}

void check_standard_input(const Options& options)
{
    const int readers = (options.credentials.standard_input ? 1 : 0) +
                        (options.disks_from == "-" ? 1 : 0) + (options.from == "-" ? 1 : 0);
    if (readers > 1)
        throw UsageError("standard input can be one thing only: --creds-stdin, --disks-from - or "
                         "--from -");
}

} // namespace

Options parse_options(int argc, char** argv)
{
    Options options;
    options.request.schedule_type = -1;
    CLI::App app;
    add_options(app, options);

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        options.information = app.help();
        return options;
    } catch (const CLI::CallForVersion& version) {
        options.information = version.what() + std::string("\n");
        return options;
    } catch (const CLI::ExtrasError&) {
        throw UsageError(describe_stray_argument({argv + 1, argv + argc}, app.remaining()));
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    }
    options.log.names_vm = !options.from.empty();
    if (options.from.empty())
        check_complete(options);
    check_standard_input(options);
    return options;
}
