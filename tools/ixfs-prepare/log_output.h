// How log lines look on standard error.
#ifndef IXFS_PREPARE_LOG_OUTPUT_H
#define IXFS_PREPARE_LOG_OUTPUT_H

#include <chrono>
#include <string>
#include <string_view>

enum class LogFormat { text, json };

struct LogStyle {
    LogFormat format = LogFormat::text;
    bool timestamps = true;
    bool quiet = false;    // only what reports a problem
    bool names_vm = false; // lines of text, too, say whose they are: several VMs share the log
};

// Whose a line is.
struct LogContext {
    std::string server;
    std::string backup_id;
};

// Pure: only the time zone is read. Any thread.
class LogOutput
{
public:
    using Time = std::chrono::system_clock::time_point;

    explicit LogOutput(const LogStyle& style) : style_(style) {}

    // A line of the library, with the newline at its end; empty if it is not to be shown. Always
    // one line, with credentials masked and control characters as "\x..":
    //
    //     2026-01-31T12:00:00.123+01:00 ERR ixfs_mount(): ERR - nothing is mounted
    //     2026-01-31T12:00:00.123+01:00 ERR [media1 client_7] ixfs_mount(): ERR - nothing is mounted
    //     {"time":"...","severity":"ERR","tag":"ixfs_mount()","message":"...","server":"media1",
    //      "backup_id":"client_7"}
    //
    // `quiet` leaves those of severity ERR that do not begin with "INF -".
    std::string format(Time time, int severity, std::string_view tag, std::string_view message,
                       const LogContext& context) const;

    // What the program itself has to say, of one line or several: "ixfs-prepare: <message>", or
    // for JSON a line with the tag "ixfs-prepare". Never left out.
    std::string format_own(Time time, int severity, std::string_view message,
                           const LogContext& context) const;

private:
    LogStyle style_;
};

#endif
