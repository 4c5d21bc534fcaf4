// An operation's log lines.
#ifndef IXFS_LOG_H
#define IXFS_LOG_H

#include "callback_gate.h"
#include "ixfs.h"

#include <cstdarg>

extern "C" {
// Sets g_lc_time to the name of the time category's locale, "C" where setlocale fails. ixfs_init
// calls it. Any thread.
IXFS_API void _ixfs_log_init(void);
}

// Logs the lines of one operation. The constructor takes where they go and the operation's tag. The
// text brings its own prefix and newline, and some texts say "INF" at the severity of errors: both
// are part of the interface. Like _ixfs_log it cuts a line at 2,047 bytes, allocates nothing and
// keeps errno. Cheap to copy. `tag` must outlive it.
class Log
{
public:
    // To the handle's callback. The handle must outlive this object.
    Log(_ixfs_control_t* handle, const char* tag) : handle_(handle), tag_(tag) {}

    // To the callback behind a gate, which must outlive this object.
    Log(CallbackGate& gate, const char* tag) : gate_(&gate), tag_(tag) {}

    void info(const char* format, ...) const IXFS_PRINTF(2, 3);
    void warning(const char* format, ...) const IXFS_PRINTF(2, 3);
    void error(const char* format, ...) const IXFS_PRINTF(2, 3);

protected:
    IXFS_PRINTF(3, 0) void write(int severity, const char* format, va_list arguments) const;

    _ixfs_control_t* handle_ = nullptr; // this or the gate is set
    CallbackGate* gate_ = nullptr;
    const char* tag_;
};

// A handle's log, with lines that go to its job log, too.
class ServerLog : public Log
{
public:
    ServerLog(_ixfs_control_t* handle, const char* tag) : Log(handle, tag) {}

    void server_info(const char* format, ...) const IXFS_PRINTF(2, 3);
};

#endif
