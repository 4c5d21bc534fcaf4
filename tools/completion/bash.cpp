#include "bash_functions.h"
#include "scripts.h"
#include "text.h"

#include <algorithm>

namespace completion
{

namespace
{

// The argument that is no option stands among the options under this name.
constexpr const char* argument_name = "argument";

std::string kind_word(const Value& value)
{
    switch (value.kind) {
    case Kind::file:
        return "file";
    case Kind::folder:
        return "folder";
    case Kind::host:
        return "host";
    case Kind::text:
        return "text";
    case Kind::choice:
        break;
    }
    return "choice " + joined(value.choices);
}

// The rows of the three tables that tell of an option under each of its names.
struct Rows {
    std::string value;
    std::string not_with;
    std::string after;
};

void add_row(std::string& table, const std::string& name, const std::string& text)
{
    if (!text.empty())
        table += "            [" + name + "]='" + text + "'\n";
}

void add_option(Rows& rows, const Option& option)
{
    for (const std::string& name : option.names) {
        add_row(rows.value, name, option.value ? kind_word(*option.value) : "");
        add_row(rows.not_with, name, joined(excluded_by(option)));
        add_row(rows.after, name, option.after);
    }
}

std::string array(const std::string& name, const std::vector<std::string>& words)
{
    return "        " + name + "=(" + joined(words) + ")\n";
}

std::string table(const std::string& name, const std::string& rows)
{
    return rows.empty() ? "        " + name + "=()\n"
                        : "        " + name + "=(\n" + rows + "        )\n";
}

std::string bash_case_of(const std::string& word, const Command& command)
{
    std::vector<std::string> options;
    std::vector<std::string> subcommands;
    Rows rows;
    for (const Option& option : command.options) {
        options.insert(options.end(), option.names.begin(), option.names.end());
        add_option(rows, option);
    }
    if (command.argument)
        add_option(
            rows,
            Option{
                {argument_name}, "", command.argument->value, false, {}, command.argument->after});
    for (const Command& subcommand : command.subcommands)
        subcommands.push_back(subcommand.name);
    return "    " + (word.empty() ? "''" : word) + ")\n" + array("options", options) +
           array("subcommands", subcommands) + table("value", rows.value) +
           table("not_with", rows.not_with) + table("after", rows.after) + "        ;;\n";
}

std::string function_name(const Command& command)
{
    std::string name = "_" + command.name;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

} // namespace

std::string bash_script(const Command& command)
{
    std::string script = "# Completion of " + command.name +
                         " for bash. Made from its table of options when it was built.\n\n"
                         "# What may stand on the command line, behind the subcommand $1 if any.\n"
                         "@COMMAND@_table() {\n    case $1 in\n" +
                         bash_case_of("", command);
    for (const Command& subcommand : command.subcommands)
        script += bash_case_of(subcommand.name, subcommand);
    script += "    esac\n}\n";
    script += bash_functions;
    script += "\ncomplete -F @COMMAND@ " + command.name + "\n";
    return with_prefix(script, function_name(command));
}

} // namespace completion
