#include "log_lines.h"

#include "check.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace
{

constexpr std::size_t longest_message = 2047;

LogLines* current;

std::vector<std::string> select(const std::vector<std::string>& lines, const std::string& start)
{
    std::vector<std::string> selected;
    for (const std::string& line : lines) {
        if (line.compare(0, start.size(), start) == 0)
            selected.push_back(line.substr(start.size()));
    }
    return selected;
}

} // namespace

LogLines::LogLines()
{
    require(current == nullptr, "one log at a time");
    current = this;
}

LogLines::~LogLines()
{
    current = nullptr;
}

void LogLines::callback(int severity, const char* tag, const char* message)
{
    require(current != nullptr, "no line comes when the handle is gone");
    require(severity >= IXFS_LOG_ERR && severity <= IXFS_LOG_INF, "a line's severity");
    require(tag != nullptr && *tag != '\0', "a line's tag");
    require(std::strlen(message) <= longest_message, "a line's length");
    current->messages_.emplace_back(message);
}

void LogLines::job_callback(void* job_log_context, int, int, int, int, int, const char* format, ...)
{
    char line[longest_message + sizeof("JBD - ")];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    require(length >= 0 && static_cast<std::size_t>(length) < sizeof(line), "a job line's length");
    static_cast<LogLines*>(job_log_context)->job_lines_.emplace_back(line);
}

std::vector<std::string> LogLines::behind(const std::string& start) const
{
    return select(messages_, start);
}

std::vector<std::string> LogLines::job_lines_behind(const std::string& start) const
{
    return select(job_lines_, start);
}

std::string logged(const std::string& message)
{
    return message.substr(0, longest_message);
}

Handle make_handle(LogLines& log, int flags)
{
    return Handle(ixfs_init(flags, nullptr, LogLines::callback, LogLines::job_callback, &log));
}
