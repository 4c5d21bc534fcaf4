// The library's log, recorded. What holds for every line is checked as the line comes.
#ifndef IXFS_FUZZ_LOG_LINES_H
#define IXFS_FUZZ_LOG_LINES_H

#include "ixfs.h"

#include <memory>
#include <string>
#include <vector>

// One at a time, since the log callback has no context. For one thread.
class LogLines
{
public:
    LogLines();
    ~LogLines();
    LogLines(const LogLines&) = delete;
    LogLines& operator=(const LogLines&) = delete;

    static void callback(int severity, const char* tag, const char* message);
    static void job_callback(void* job_log_context, int, int, int, int, int, const char* format,
                             ...) IXFS_PRINTF(7, 8);

    // The messages, or job-log lines, that begin with `start`, each without it.
    std::vector<std::string> behind(const std::string& start) const;
    std::vector<std::string> job_lines_behind(const std::string& start) const;

private:
    std::vector<std::string> messages_;
    std::vector<std::string> job_lines_;
};

// A message as it is logged: cut to the library's buffer.
std::string logged(const std::string& message);

struct HandleDeleter {
    void operator()(_ixfs_control_t* handle) const { ixfs_term(handle); }
};

using Handle = std::unique_ptr<_ixfs_control_t, HandleDeleter>;

// Makes a handle that logs to `log`.
Handle make_handle(LogLines& log, int flags = 0);

#endif
