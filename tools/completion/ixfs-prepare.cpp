// Writes the completion of ixfs-prepare.
#include "option_table.h"
#include "scripts.h"

int main(int argc, char** argv)
{
    Options options;
    const completion::Command command =
        completion::read_command([&](CLI::App& app) { add_options(app, options); });
    return completion::write_scripts(command, argc, argv);
}
