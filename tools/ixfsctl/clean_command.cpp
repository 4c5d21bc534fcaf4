#include "clean_command.h"

#include "cleaner.h"
#include "console.h"
#include "usage_error.h"

#include <string>
#include <unistd.h>

namespace
{

ExitStatus run(Cleaner& cleaner)
{
    cleaner.run();
    return cleaner.left() == 0 ? exit_success : exit_failure;
}

Cleaner make_cleaner(const CleanOptions& options, Cleaner::Mode mode)
{
    return Cleaner(options.server, mode, [](const std::string& line) { print(line + "\n"); });
}

bool is_confirmed()
{
    print("Go on? [y/N] ");
    std::string answer;
    char character = 0;
    while (read(STDIN_FILENO, &character, 1) == 1 && character != '\n')
        answer += character;
    return answer == "y" || answer == "Y" || answer == "yes";
}

} // namespace

ExitStatus clean(const CleanOptions& options)
{
    if (!options.dry_run && !options.yes && isatty(STDIN_FILENO) == 0)
        throw UsageError("clean: nobody can be asked, since standard input is no terminal: give "
                         "--yes, or --dry-run to see what would be done");
    if (!options.yes || options.dry_run) {
        Cleaner plan = make_cleaner(options, Cleaner::Mode::only_say);
        const ExitStatus status = run(plan);
        if (plan.steps() == 0)
            print("Nothing to clean.\n");
        if (options.dry_run || plan.steps() == 0)
            return status;
        if (!is_confirmed()) {
            print("Nothing was done.\n");
            return exit_failure;
        }
    }
    Cleaner cleaner = make_cleaner(options, Cleaner::Mode::do_it);
    return run(cleaner);
}

} // namespace

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
