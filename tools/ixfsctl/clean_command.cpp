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
