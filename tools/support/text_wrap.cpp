#include "text_wrap.h"

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
