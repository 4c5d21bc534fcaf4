// Writes the completion of ixfsctl.
#include "catalogue.h"
#include "options.h"
#include "scripts.h"

namespace
{

std::vector<std::string> statuses()
{
    std::vector<std::string> words;
    for (const StatusRow& status : status_rows()) {
        words.push_back(std::to_string(status.number));
        words.emplace_back(status.name);
    }
    return words;
}

} // namespace

int main(int argc, char** argv)
{
    Action action;
    const completion::Command command = completion::read_command(
        [&](CLI::App& app) { add_options(app, action); }, {{"STATUS", statuses()}});
    return completion::write_scripts(command, argc, argv);
}
