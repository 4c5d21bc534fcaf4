#include "options.h"

#include "helper_argument.h"
#include "usage_error.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <limits>
#include <system_error>

namespace
{

constexpr const char* description =
    "Prepares a VM for instant recovery from a stored backup image: mounts the image, builds the\n"
    "view of the VM's disks in it, unmounts, and prints the VM configuration and the paths of the\n"
    "new disk descriptors. Log lines go to standard error.";

constexpr const char* footer_text =
    "Credentials are read from two files or from standard input, never from the command line.\n"
    "Exit status: 0 prepared, 1 preparation failed or result not written, 2 bad usage.";

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

// The client, the id's front, becomes a directory name.
std::string check_backup_id(const std::string& value)
{
    if (value.empty())
        return "must not be empty";
    if (value.find('/') != std::string::npos)
        return "must not hold a \"/\", since it becomes a directory name";
    return "";
}

bool has_parent_segment(const std::string& path)
{
    return ("/" + path + "/").find("/../") != std::string::npos;
}

// What lies behind the "[<datastore>]" of a path in datastore form.
std::string without_datastore(const std::string& path)
{
    const std::size_t start = path.find_first_not_of(' ', path.find(']') + 1);
    return start != std::string::npos ? path.substr(start) : "";
}

// A path with ".." could lead out of the image.
std::string check_disk(const std::string& value)
{
    if (value.empty())
        return "must not be empty";
    if (has_parent_segment(value) || has_parent_segment(without_datastore(value)))
        return "must not hold a \"..\" segment";
    return "";
}

void add_image_options(CLI::App& app, Options& options)
{
    app.add_option("--server", options.server, "Media server that holds the image")
        ->required()
        ->type_name("NAME")
        ->check(check_server_name);
    add_number(app, "--port", options.port, 1, 65535, "The server's port")->required();
    const auto set_schedule = [&options](const std::string& name) {
        options.schedule_type = name == "full" ? 0 : 1;
    };
    app.add_option_function<std::string>("--schedule", set_schedule,
                                         "Kind of backup that made the image: full or incr")
        ->required()
        ->type_name("KIND")
        ->check(CLI::IsMember({"full", "incr"}));
    add_number(app, "--timeout", options.timeout, 0U, std::numeric_limits<unsigned int>::max(),
               "Seconds to try again while the server is too busy; more than 60 is taken as 60, 0 "
               "means one try")
        ->default_str(std::to_string(options.timeout));
    app.add_option("--backup-id", options.backup_id, "The image: <client>_<time>")
        ->required()
        ->type_name("ID")
        ->check(check_backup_id);
    app.add_option("--disk", options.disks,
                   "A disk's descriptor in datastore form, \"[<datastore>] "
                   "...backups/.../<disk>.vmdk.desc\"; once for each disk of the VM")
        ->required()
        ->allow_extra_args(false)
        ->type_name("PATH")
        ->check(check_disk);
    app.add_flag("--new-disk-uuids", options.new_disk_uuids,
                 "Give each descriptor copy a disk UUID of its own");
}

void add_credential_options(CLI::App& app, Options& options, bool& from_stdin)
{
    CLI::Option* const mount =
        app.add_option("--mount-cred-file", options.mount_cred_file, "Holds the mount credential");
    CLI::Option* const unmount = app.add_option("--unmount-cred-file", options.unmount_cred_file,
                                                "Holds the unmount credential");
    mount->type_name("FILE")->needs(unmount);
    unmount->type_name("FILE")->needs(mount);
    app.add_flag("--creds-stdin", from_stdin,
                 "Read the mount credential from the first line of standard input, the unmount "
                 "credential from the second")
        ->excludes(mount)
        ->excludes(unmount);
}

// Names an argument that nobody asked for. What may be a credential is not repeated, only the name
// of a long option.
std::string describe_unexpected(const std::vector<std::string>& arguments)
{
    const auto long_option =
        std::find_if(arguments.begin(), arguments.end(),
                     [](const std::string& argument) { return argument.rfind("--", 0) == 0; });
    if (long_option == arguments.end())
        return "an argument was not expected";
    return "unknown option: " + long_option->substr(0, long_option->find('='));
}

} // namespace

Options parse_options(int argc, char** argv)
{
    Options options;
    bool creds_from_stdin = false;
    CLI::App app(description, "ixfs-prepare");
    app.footer(footer_text);
    app.set_version_flag("--version", "ixfs-prepare " IXFS_PREPARE_VERSION);
    add_image_options(app, options);
    add_credential_options(app, options, creds_from_stdin);
    app.add_flag("--json", options.json, "Print the result as JSON on standard output");
    app.add_flag("--quiet", options.quiet,
                 "Print only the log lines of severity ERR; those that begin with \"INF -\" are no "
                 "errors");

    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp&) {
        options.information = app.help();
        return options;
    } catch (const CLI::CallForVersion& version) {
        options.information = version.what() + std::string("\n");
        return options;
    } catch (const CLI::ExtrasError&) {
        throw UsageError(describe_unexpected(app.remaining()));
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    }
    if (!creds_from_stdin && options.mount_cred_file.empty())
        throw UsageError("credentials are missing: give --mount-cred-file and --unmount-cred-file, "
                         "or --creds-stdin");
    return options;
}
