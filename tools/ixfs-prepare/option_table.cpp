#include "option_table.h"

#include "help_format.h"
#include "helper_argument.h"
#include "values.h"

#include <CLI/CLI.hpp>
#include <charconv>
#include <limits>
#include <memory>
#include <system_error>

namespace
{

constexpr const char* description =
    "Prepares a VM for instant recovery from a stored backup image: mounts the image, builds the "
    "view of the VM's disks in it, unmounts, and prints the VM configuration and the paths of the "
    "new disk descriptors. Log lines go to standard error.";

constexpr const char* footer_text =
    "Credentials are read from files or from standard input, never from the command line.\n\n"
    "Exit status:\n"
    "  0    prepared, or the view is removed; with --from: all VMs are prepared\n"
    "  1    a preparation failed, the result could not be written, or you did not\n"
    "       agree to --remove-view\n"
    "  2    bad usage; nothing was done\n"
    "  3    the image is still mounted\n"
    "  129, 130, 143    ended by SIGHUP, SIGINT, SIGTERM";

constexpr int highest_jobs = 1000;

constexpr const char* image_group = "Image (each is needed, unless --from has it)";
constexpr const char* disk_group = "Disks";
constexpr const char* credential_group = "Credentials";
constexpr const char* work_group = "What to do, other than to prepare one VM";
constexpr const char* output_group = "Output";

// Registers an option whose value is a plain decimal number; CLI11 alone would also take octal and
// hexadecimal ones.
template <typename Number>
CLI::Option* add_number(CLI::App& app, const std::string& name, Number& target, Number lowest,
                        Number highest, const std::string& help)
{
    const auto parse = [&target, name, lowest, highest](const std::string& text) {
        Number number{};
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, number);
        if (error != std::errc() || stop != end || number < lowest || number > highest)
            throw CLI::ValidationError(name, "must be a whole number from " +
                                                 std::to_string(lowest) + " to " +
                                                 std::to_string(highest));
        target = number;
    };
    return app.add_option_function<std::string>(name, parse, help)->type_name("NUMBER");
}

void add_image_options(CLI::App& app, Request& request)
{
    app.add_option("--server", request.server, "Media server that holds the image")
        ->type_name("NAME")
        ->check(check_server_name)
        ->group(image_group);
    add_number(app, "--port", request.port, lowest_port, highest_port, "The server's port")
        ->group(image_group);
    const auto set_schedule = [&request](const std::string& name) {
        request.schedule_type = schedule_number(name);
    };
    app.add_option_function<std::string>("--schedule", set_schedule,
                                         "Kind of backup that made the image: full or incr")
        ->type_name("KIND")
        ->check(CLI::IsMember({"full", "incr"}))
        ->group(image_group);
    app.add_option("--backup-id", request.backup_id, "The image: <client>_<time>")
        ->type_name("ID")
        ->check(check_backup_id)
        ->group(image_group);
    add_number(app, "--timeout", request.timeout, 0U, std::numeric_limits<unsigned int>::max(),
               "Seconds to try again while the server is too busy; 60 if not given. More than 60 "
               "is taken as 60, 0 means one try")
        ->group(image_group);
}

void add_disk_options(CLI::App& app, Options& options)
{
    app.add_option("--disk", options.request.disks,
                   "A disk's descriptor in datastore form, \"[<datastore>] "
                   "...backups/.../<disk>.vmdk.desc\". Repeat --disk for each disk of the VM")
        ->allow_extra_args(false)
        ->type_name("PATH")
        ->group(disk_group);
    app.add_option("--disks-from", options.disks_from,
                   "A list of more disks, one a line; - is standard input")
        ->type_name("FILE")
        ->group(disk_group);
    app.add_flag("--new-disk-uuids", options.request.new_disk_uuids,
                 "Give each descriptor copy a disk UUID of its own")
        ->group(disk_group);
}

void add_credential_options(CLI::App& app, CredentialSource& source)
{
    CLI::Option* const mount =
        app.add_option("--mount-cred-file", source.mount_file, "Holds the mount credential");
    CLI::Option* const unmount =
        app.add_option("--unmount-cred-file", source.unmount_file, "Holds the unmount credential");
    mount->type_name("FILE")->needs(unmount)->group(credential_group);
    unmount->type_name("FILE")->needs(mount)->group(credential_group);
    app.add_flag("--creds-stdin", source.standard_input,
                 "Read the mount credential from the first line of standard input, the unmount "
                 "credential from the second")
        ->excludes(mount)
        ->excludes(unmount)
        ->group(credential_group);
}

void add_work_options(CLI::App& app, Options& options)
{
    CLI::Option* const from =
        app.add_option("--from", options.from,
                       "Prepare many VMs: a list of JSON lines, one VM each; - is standard input. "
                       "What a line leaves out comes from the other options. Prints one JSON line "
                       "for each VM, and a summary");
    from->type_name("FILE")->group(work_group);
    add_number(app, "--jobs", options.jobs, 1, highest_jobs,
               "With --from: how many servers to work on at once; 1 if not given")
        ->needs(from)
        ->group(work_group);
    app.add_flag("--dry-run", options.dry_run,
                 "Check all arguments, print every path of every disk, and mount nothing")
        ->group(work_group);
    CLI::Option* const remove =
        app.add_flag("--remove-view", options.request.remove_view,
                     "Remove the image's view with all that is in it. Asks before. Needs no disk");
    remove->group(work_group)->excludes(from);
    for (const char* name : {"--disk", "--disks-from", "--new-disk-uuids"})
        remove->excludes(app.get_option(name));
    app.add_flag("--yes", options.yes, "With --remove-view: do not ask")
        ->needs(remove)
        ->group(work_group);
}

void add_output_options(CLI::App& app, Options& options)
{
    app.add_flag("--json", options.json, "Print the result as JSON on standard output")
        ->group(output_group);
    app.add_flag("--quiet", options.log.quiet,
                 "Print only log lines that report a problem: of severity ERR, without those that "
                 "begin with \"INF -\"")
        ->group(output_group);
    const auto set_format = [&options](const std::string& name) {
        options.log.format = name == "json" ? LogFormat::json : LogFormat::text;
    };
    app.add_option_function<std::string>("--log-format", set_format,
                                         "How log lines look: text or json")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"text", "json"}))
        ->group(output_group);
    app.add_flag_callback(
           "--no-timestamps", [&options] { options.log.timestamps = false; },
           "Leave the time out of log lines")
        ->group(output_group);
}

} // namespace

void add_options(CLI::App& app, Options& options)
{
    app.name("ixfs-prepare");
    app.description(description);
    app.formatter(std::make_shared<HelpFormat>());
    app.footer(footer_text);
    app.set_version_flag("--version", "ixfs-prepare " IXFS_PREPARE_VERSION);
    add_image_options(app, options.request);
    add_disk_options(app, options);
    add_credential_options(app, options.credentials);
    add_work_options(app, options);
    add_output_options(app, options);
}
