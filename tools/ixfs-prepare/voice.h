// All that the program says on standard error.
#ifndef IXFS_PREPARE_VOICE_H
#define IXFS_PREPARE_VOICE_H

#include "console.h"
#include "log_output.h"
#include "records.h"
#include "request.h"

#include <ixfs.h>
#include <string>

class Voice
{
public:
    Voice(Console& console, const LogStyle& style)
        : console_(console), style_(style), output_(style)
    {
    }

    void log(const LogLine& line, const Request& request) const;

    // A line that the helper wrote: as it stands, or as a log line where all are JSON.
    void helper_error(const std::string& line, const Request& request) const;

    // What the program itself has to tell, of a request or of none.
    void say(const std::string& text) const { console_.print(own(text, IXFS_LOG_INF, {})); }
    void complain(const std::string& text) const
    {
        console_.print_failure(own(text, IXFS_LOG_ERR, {}));
    }
    void complain(const std::string& text, const Request& request) const
    {
        console_.print_failure(own(text, IXFS_LOG_ERR, {request.server, request.backup_id}));
    }

private:
    std::string own(const std::string& text, int severity, const LogContext& context) const;

    Console& console_;
    const LogStyle style_;
    const LogOutput output_;
};

#endif
