#include "console.h"

#include <cstdlib>
#include <sys/ioctl.h>
#include <unistd.h>

namespace
{

constexpr std::string_view clear_line = "\r\x1b[K";
constexpr std::string_view red = "\x1b[31m";
constexpr std::string_view no_colour = "\x1b[0m";

std::string_view environment(const char* name)
{
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

bool is_terminal()
{
    const std::string_view kind = environment("TERM");
    return isatty(STDERR_FILENO) == 1 && !kind.empty() && kind != "dumb";
}

std::size_t terminal_width()
{
    constexpr std::size_t usual = 80;
    winsize size{};
    return ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0 ? size.ws_col : usual;
}

// A line as wide as the terminal would move the cursor to the next one. A character of several
// bytes is not cut in its middle.
std::string cut(const std::string& line, std::size_t width)
{
    std::size_t end = line.size() < width ? line.size() : width - 1;
    while (end > 0 && end < line.size() && (static_cast<unsigned char>(line[end]) & 0xc0) == 0x80)
        --end;
    return line.substr(0, end);
}

} // namespace

Console::Console(bool progress)
    : progress_(progress && is_terminal()),
      colour_(is_terminal() && environment("NO_COLOR").empty())
{
}

Console::~Console()
{
    hide_progress();
    finish();
}

void Console::print(std::string_view lines)
{
    if (lines.empty())
        return;
    const std::string progress = shown_;
    hide_progress();
    errors_.write(lines);
    if (!progress.empty())
        show_progress(progress);
}

void Console::print_failure(std::string_view lines)
{
    if (!colour_)
        return print(lines);
    const bool ends_line = !lines.empty() && lines.back() == '\n';
    if (ends_line)
        lines.remove_suffix(1);
    std::string coloured(red);
    coloured.append(lines).append(no_colour).append(ends_line ? "\n" : "");
    print(coloured);
}

void Console::show_progress(const std::string& line)
{
    if (!progress_ || errors_.waits())
        return; // it is out of date when it is read
    const std::string text = cut(line, terminal_width());
    if (text == shown_)
        return;
    errors_.write(std::string(clear_line) + text);
    shown_ = text;
}

void Console::hide_progress()
{
    if (!shown_.empty())
        errors_.write(clear_line);
    shown_.clear();
}
