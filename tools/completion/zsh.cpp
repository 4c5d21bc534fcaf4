#include "scripts.h"
#include "text.h"

namespace completion
{

namespace
{

std::string with_backslashes(const std::string& text, const std::string& characters)
{
    std::string escaped;
    for (const char character : text) {
        if (characters.find(character) != std::string::npos)
            escaped += '\\';
        escaped += character;
    }
    return escaped;
}

std::string in_quotes(const std::string& text)
{
    std::string word = "'";
    for (const char character : text)
        word += character == '\'' ? "'\\''" : std::string(1, character);
    return word + "'";
}

// A list shows one line each, so the first sentence must do.
std::string first_sentence(const std::string& text)
{
    return text.substr(0, text.find(". "));
}

std::string action(const Value& value)
{
    switch (value.kind) {
    case Kind::file:
        return "_files";
    case Kind::folder:
        return "_files -/";
    case Kind::host:
        return "_hosts";
    case Kind::text:
        return " "; // shows the type and offers nothing
    case Kind::choice:
        break;
    }
    return "(" + joined(value.choices) + ")";
}

std::string message_and_action(const Value& value)
{
    return ":" + with_backslashes(value.type, ":\\") + ":" + action(value);
}

// What an option rules out once it stands there. The table has it the other way round.
std::vector<std::string> ruled_out_by(const Option& option, const Command& command)
{
    std::vector<std::string> names;
    for (const Option& other : command.options) {
        for (const std::string& name : excluded_by(other)) {
            if (name == option.names.front())
                names.insert(names.end(), other.names.begin(), other.names.end());
        }
    }
    return names;
}

// An option as _arguments takes it.
std::string entry(const Option& option, const std::string& name, const Command& command)
{
    const std::vector<std::string> ruled_out = ruled_out_by(option, command);
    std::string text = ruled_out.empty() ? "" : "(" + joined(ruled_out) + ")";
    if (option.repeats)
        text += "*";
    text += name;
    if (option.value && name.rfind("--", 0) == 0)
        text += "=";
    if (!option.description.empty())
        text += "[" + with_backslashes(first_sentence(option.description), "[]:\\") + "]";
    if (option.value)
        text += message_and_action(*option.value);
    return in_quotes(text);
}

std::string line(const std::string& text, const std::string& after)
{
    const std::string condition = after.empty() ? "" : "(( ! ${words[(Ie)" + after + "]} )) || ";
    return "        " + condition + "arguments+=(" + text + ")\n";
}

std::string zsh_case_of(const std::string& word, const Command& command)
{
    std::string text = "    " + (word.empty() ? "''" : word) + ")\n";
    for (const Option& option : command.options) {
        for (const std::string& name : option.names)
            text += line(entry(option, name, command), option.after);
    }
    if (const auto& argument = command.argument)
        text += line(in_quotes("1" + message_and_action(argument->value)), argument->after);
    if (!command.subcommands.empty())
        text += "        [[ $words[2] == -- ]] || " // behind it there is no subcommand
                "arguments+=('1: :@COMMAND@_subcommands' '*:: :->behind_subcommand')\n";
    return text + "        ;;\n";
}

std::string subcommand_list(const Command& command)
{
    std::string text = "@COMMAND@_subcommands() {\n    local -a subcommands=(\n";
    for (const Command& subcommand : command.subcommands) {
        const std::string description = first_sentence(subcommand.description);
        text += "        " +
                in_quotes(subcommand.name + (description.empty() ? "" : ":" + description)) + "\n";
    }
    return text + "    )\n    _describe -t commands subcommand subcommands\n}\n\n";
}

constexpr const char* main_function = R"(@COMMAND@() {
    local curcontext=$curcontext context state state_descr line ret=1
    local -a arguments
    local -A opt_args
    @COMMAND@_arguments ''
    _arguments -C -S $arguments && ret=0
    if [[ $state == behind_subcommand ]]; then
        @COMMAND@_arguments $words[1]
        _arguments -S $arguments && ret=0
    fi
    return ret
}

@COMMAND@ "$@"
)";

} // namespace

std::string zsh_script(const Command& command)
{
    std::string script = "#compdef " + command.name + "\n# Completion of " + command.name +
                         " for zsh. Made from its table of options when it was built.\n\n"
                         "# What may stand on the command line, behind the subcommand $1 if any.\n"
                         "@COMMAND@_arguments() {\n    arguments=()\n    case $1 in\n" +
                         zsh_case_of("", command);
    for (const Command& subcommand : command.subcommands)
        script += zsh_case_of(subcommand.name, subcommand);
    script += "    esac\n}\n\n";
    if (!command.subcommands.empty())
        script += subcommand_list(command);
    return with_prefix(script + main_function, "_" + command.name);
}

} // namespace completion
