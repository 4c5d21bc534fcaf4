#include "log_output.h"

#include "json_text.h"
#include "log_text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <ctime>
#include <ixfs.h>
#include <nlohmann/json.hpp>

namespace
{

using json = nlohmann::ordered_json;
using Time = LogOutput::Time;

constexpr std::string_view own_tag = "ixfs-prepare";

// With zeros in front.
std::string padded(long number, std::size_t width)
{
    const std::string digits = std::to_string(number);
    return std::string(width - std::min(width, digits.size()), '0') + digits;
}

// "+01:00", or "Z" where local time is UTC.
std::string format_offset(long seconds)
{
    if (seconds == 0)
        return "Z";
    const long minutes = std::labs(seconds) / 60;
    return (seconds < 0 ? '-' : '+') + padded(minutes / 60, 2) + ':' + padded(minutes % 60, 2);
}

// As RFC 3339 has it, in local time.
std::string format_time(Time time)
{
    const auto whole = std::chrono::floor<std::chrono::seconds>(time);
    const auto rest = std::chrono::floor<std::chrono::milliseconds>(time - whole);
    const std::time_t seconds = Time::clock::to_time_t(whole);
    std::tm fields{};
    localtime_r(&seconds, &fields);
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &fields);
    return date.data() + ('.' + padded(rest.count(), 3)) + format_offset(fields.tm_gmtoff);
}

// The library's own prefix tells what it means: good unmounts log "INF -" lines of severity ERR.
bool reports_problem(int severity, std::string_view message)
{
    return severity == IXFS_LOG_ERR && message.substr(0, 5) != "INF -";
}

std::string format_json_line(const std::string& time, int severity, std::string_view tag,
                             const std::string& message, const LogContext& context)
{
    json line = json::object();
    if (!time.empty())
        line["time"] = time;
    line["severity"] = severity_name(severity);
    line["tag"] = tag;
    line["message"] = message;
    line["server"] = context.server;
    line["backup_id"] = context.backup_id;
    return line.dump(-1, ' ', false, json::error_handler_t::replace) + "\n";
}

} // namespace

std::string LogOutput::format(Time time, int severity, std::string_view tag,
                              std::string_view message, const LogContext& context) const
{
    if (style_.quiet && !reports_problem(severity, message))
        return "";
    const std::string shown = shown_message(message);
    const std::string stamp = style_.timestamps ? format_time(time) : "";
    if (style_.format == LogFormat::json)
        return format_json_line(stamp, severity, tag, shown, context);
    std::string line = stamp.empty() ? "" : stamp + ' ';
    line.append(severity_name(severity));
    if (style_.names_vm)
        line.append(" [")
            .append(context.server)
            .append(" ")
            .append(escape_control_characters(context.backup_id) + ']');
    return line.append(" ").append(tag).append(": ").append(shown).append("\n");
}

std::string LogOutput::format_own(Time time, int severity, std::string_view message,
                                  const LogContext& context) const
{
    const std::string text(message);
    if (style_.format == LogFormat::json)
        return format_json_line(style_.timestamps ? format_time(time) : "", severity, own_tag, text,
                                context);
    std::string line(own_tag);
    if (style_.names_vm && !context.server.empty())
        line.append(": [")
            .append(context.server)
            .append(" ")
            .append(escape_control_characters(context.backup_id) + ']');
    return line.append(": ").append(text).append("\n");
}
