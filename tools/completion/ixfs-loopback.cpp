// Writes the completion of ixfs-loopback, whose words have a fixed order.
#include "command_line.h"
#include "scripts.h"

#include <utility>

namespace
{

completion::Option option_of(const Word& word)
{
    completion::Option option;
    option.names = {word.option};
    if (!word.value.empty())
        option.value = completion::value_of_type(word.value);
    return option;
}

completion::Command command_of(const Syntax& syntax)
{
    completion::Command command;
    command.name = syntax.name;
    std::string needed; // the last word that must stand before the next one
    for (const Word& word : syntax.words) {
        if (word.option.empty()) {
            command.argument = completion::Argument{completion::value_of_type(word.value), needed};
            continue;
        }
        for (completion::Option& earlier : command.options)
            earlier.not_with.push_back(word.option);
        completion::Option option = option_of(word);
        option.after = needed;
        command.options.push_back(std::move(option));
        if (!word.may_miss)
            needed = word.option;
    }
    return command;
}

} // namespace

int main(int argc, char** argv)
{
    completion::Command command;
    command.name = "ixfs-loopback";
    completion::Option help;
    help.names = {"--help"};
    command.options = {help};
    for (const Syntax& syntax : syntaxes())
        command.subcommands.push_back(command_of(syntax));
    return completion::write_scripts(command, argc, argv);
}
