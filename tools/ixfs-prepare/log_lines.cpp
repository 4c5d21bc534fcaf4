#include "log_lines.h"

#include "standard_streams.h"

#include <exception>
#include <mutex>
#include <string>
#include <string_view>
#include <unistd.h>

namespace
{

std::string_view severity_name(int severity)
{
    switch (severity) {
    case IXFS_LOG_ERR:
        return "ERR";
    case IXFS_LOG_WRN:
        return "WRN";
    default:
        return "INF";
    }
}

// Replaces what follows "-cred ", up to the next blank, by "***".
std::string mask_credential(std::string_view message)
{
    constexpr std::string_view option = "-cred ";
    std::string masked(message);
    for (std::size_t at = masked.find(option); at != std::string::npos;
         at = masked.find(option, at)) {
        at += option.size();
        const std::size_t end = masked.find(' ', at);
        masked.replace(at, end == std::string::npos ? end : end - at, "***");
    }
    return masked;
}

// Helper output is among the messages: it must not end a line or steer a terminal.
std::string escape_control_characters(std::string_view text)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string escaped;
    escaped.reserve(text.size());
    for (const char character : text) {
        const auto byte = static_cast<unsigned char>(character);
        if ((byte < 0x20 && byte != '\t') || byte == 0x7f)
            (escaped += "\\x").append({digits[byte >> 4], digits[byte & 0xf]});
        else
            escaped += character;
    }
    return escaped;
}

std::string format_line(int severity, const char* tag, std::string_view message)
{
    if (!message.empty() && message.back() == '\n')
        message.remove_suffix(1);
    std::string line(severity_name(severity));
    line.append(" ").append(tag).append(": ");
    line.append(escape_control_characters(mask_credential(message))).append("\n");
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
