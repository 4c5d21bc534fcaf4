#include "help_format.h"

#include <utility>

namespace
{

constexpr std::size_t description_column = 28;

} // namespace

std::string wrap(std::string_view text, std::size_t indent, std::size_t width)
{
    const std::string margin = '\n' + std::string(indent, ' ');
    std::string wrapped;
    std::size_t column = indent;
    bool begins_line = true;
    while (!text.empty()) {
        const std::size_t end = text.find_first_of(" \n");
        const std::string_view word = text.substr(0, end);
        if (!begins_line && column + 1 + word.size() > width) {
            wrapped += margin;
            column = indent;
            begins_line = true;
        }
        if (!begins_line) {
            wrapped += ' ';
            ++column;
        }
        wrapped += word;
        column += word.size();
        begins_line = false;
        if (end == std::string_view::npos)
            break;
        if (text[end] == '\n') {
            wrapped += end + 1 < text.size() && text[end + 1] == '\n' ? "\n" : margin;
            column = indent;
            begins_line = true;
        }
        text.remove_prefix(end + 1);
    }
    return wrapped;
}

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
    std::string text =
        "  " + make_option_name(option, is_positional) + make_option_opts(option) + "  ";
    if (text.size() > description_column)
        text += '\n' + std::string(description_column, ' ');
    else
        text.resize(description_column, ' ');
    return text + wrap(make_option_desc(option), description_column) + '\n';
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

// Without the empty line in front: there is one behind each group already.
std::string HelpFormat::make_group(std::string group, bool is_positional,
                                   std::vector<const CLI::Option*> options) const
{
    return CLI::Formatter::make_group(std::move(group), is_positional, std::move(options))
        .substr(1);
}
