#include "command.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

namespace completion
{

namespace
{

std::vector<std::string> split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);)
        parts.push_back(part);
    return parts;
}

bool is_word_itself(const std::string& type)
{
    return type.find_first_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ") == std::string::npos;
}

std::vector<std::string> names_of(const CLI::Option& option)
{
    std::vector<std::string> names;
    for (const std::string& name : option.get_snames())
        names.push_back("-" + name);
    for (const std::string& name : option.get_lnames())
        names.push_back("--" + name);
    return names;
}

Option read_option(const CLI::Option& source, const KnownValues& known)
{
    Option option;
    option.names = names_of(source);
    option.description = source.get_description();
    if (source.get_items_expected_max() != 0)
        option.value = value_of_type(source.get_type_name(), known);
    option.repeats = option.value && source.get_items_expected_max() > 1;
    for (const CLI::Option* other : source.get_excludes()) {
        for (const std::string& name : names_of(*other))
            option.not_with.push_back(name);
    }
    std::sort(option.not_with.begin(), option.not_with.end()); // CLI11 sorts them by address
    return option;
}

Command read_app(const CLI::App& app, const KnownValues& known)
{
    Command command;
    command.name = app.get_name();
    command.description = app.get_description();
    for (const CLI::Option* option : app.get_options()) {
        if (option->get_positional())
            command.argument = Argument{value_of_type(option->get_type_name(), known), ""};
        else
            command.options.push_back(read_option(*option, known));
    }
    for (const CLI::App* subcommand : app.get_subcommands(nullptr))
        command.subcommands.push_back(read_app(*subcommand, known));
    return command;
}

} // namespace

Value value_of_type(const std::string& type, const KnownValues& known)
{
    static const std::map<std::string, Kind> kinds = {
        {"FILE", Kind::file}, {"DIR", Kind::folder}, {"NAME", Kind::host}};
    Value value;
    value.type = type.substr(0, type.find(':'));
    if (const auto kind = kinds.find(value.type); kind != kinds.end())
        value.kind = kind->second;
    if (const std::size_t set = type.find(":{"); set != std::string::npos)
        value.choices = split(type.substr(set + 2, type.size() - set - 3), ',');
    for (const std::string& part : split(value.type, '|')) {
        if (is_word_itself(part))
            value.choices.push_back(part);
        else if (const auto words = known.find(part); words != known.end())
            value.choices.insert(value.choices.end(), words->second.begin(), words->second.end());
    }
    if (!value.choices.empty())
        value.kind = Kind::choice;
    return value;
}

std::vector<std::string> excluded_by(const Option& option)
{
    std::vector<std::string> names = option.not_with;
    if (!option.repeats)
        names.insert(names.end(), option.names.begin(), option.names.end());
    return names;
}

Command read_command(const std::function<void(CLI::App&)>& add_options, const KnownValues& known)
{
    CLI::App app;
    add_options(app);
    return read_app(app, known);
}

} // namespace completion
