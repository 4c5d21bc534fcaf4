#include "help_format.h"

#include "text_wrap.h"

#include <utility>

namespace
{

constexpr std::size_t description_column = 28;

// What is described, and its description in a column of its own.
std::string row(const std::string& subject, const std::string& text)
{
    std::string line = "  " + subject + "  ";
    if (line.size() > description_column)
        line += '\n' + std::string(description_column, ' ');
    else
        line.resize(description_column, ' ');
    return line + wrap(text, description_column) + '\n';
}

} // namespace

std::string HelpFormat::make_description(const CLI::App* app) const
{
    return wrap(app->get_description(), 0) + "\n\n";
}

std::string HelpFormat::make_footer(const CLI::App* app) const
{
    return wrap(app->get_footer(), 0) + "\n";
}

std::string HelpFormat::make_option(const CLI::Option* option, bool is_positional) const
{
    return row(make_option_name(option, is_positional) + make_option_opts(option),
               make_option_desc(option));
}

std::string HelpFormat::make_subcommand(const CLI::App* subcommand) const
{
    return row(subcommand->get_name(), subcommand->get_description());
}

// CLI11 puts the values that are allowed behind a ":".
std::string HelpFormat::make_option_opts(const CLI::Option* option) const
{
    if (option->get_type_size() == 0)
        return "";
    const std::string type = option->get_type_name();
    return ' ' + type.substr(0, type.find(':'));
}

std::string HelpFormat::make_usage(const CLI::App* app, std::string name) const
{
    return CLI::Formatter::make_usage(app, std::move(name)) + '\n';
}

// make_group leaves out the empty line in front of the options.
std::string HelpFormat::make_positionals(const CLI::App* app) const
{
    const std::string positionals = CLI::Formatter::make_positionals(app);
    return positionals.empty() ? positionals : positionals + '\n';
}

// Without the empty line in front: there is one behind each group already.
std::string HelpFormat::make_group(std::string group, bool is_positional,
                                   std::vector<const CLI::Option*> options) const
{
    return CLI::Formatter::make_group(std::move(group), is_positional, std::move(options))
        .substr(1);
}
