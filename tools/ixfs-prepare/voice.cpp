#include "voice.h"

void Voice::log(const LogLine& line, const Request& request) const
{
    console_.print(output_.format(line.time, line.severity, line.tag, line.message,
                                  {request.server, request.backup_id}));
}

void Voice::helper_error(const std::string& line, const Request& request) const
{
    // After a failure the result has the last lines. One who writes on and on, and nobody reads it,
    // must not be kept waiting: it may hold up the whole host.
    constexpr std::size_t most_unread = 16 << 20;
    if (style_.quiet || console_.errors().left() > most_unread)
        return;
    if (style_.format == LogFormat::text)
        console_.print(line + "\n");
    else
        console_.print(output_.format(std::chrono::system_clock::now(), IXFS_LOG_INF, "ixfs", line,
                                      {request.server, request.backup_id}));
}

std::string Voice::own(const std::string& text, int severity, const LogContext& context) const
{
    return output_.format_own(std::chrono::system_clock::now(), severity, text, context);
}
