#include "log_lines.h"

#include "log_text.h"
#include "standard_streams.h"

#include <exception>
#include <mutex>
#include <string>
#include <string_view>
#include <unistd.h>

namespace
{

std::string format_line(int severity, const char* tag, std::string_view message)
{
    std::string line(severity_name(severity));
    line.append(" ").append(tag).append(": ");
    line.append(shown_message(message)).append("\n");
    return line;
}

void print_line(int severity, const char* tag, const char* message) noexcept
{
    static std::mutex one_at_a_time;
    try {
        const std::string line = format_line(severity, tag, message);
        const std::lock_guard<std::mutex> guard(one_at_a_time);
        write_all(STDERR_FILENO, line);
    } catch (const std::exception&) {
        // A callback must not throw, and there is nowhere left to say that a line was lost.
    }
}

void print_error_line(int severity, const char* tag, const char* message) noexcept
{
    if (severity == IXFS_LOG_ERR)
        print_line(severity, tag, message);
}

} // namespace

ixfs_log_callback log_to_standard_error(bool quiet)
{
    return quiet ? print_error_line : print_line;
}
