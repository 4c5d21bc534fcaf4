#include "log.h"

#include "bounded_text.h"
#include "control.h"

#include <ace/OS_Errno.h>

#include <cstdio>

namespace
{

// One formatted message. It lives on the stack, so a line costs no allocation, and logging works
// where memory is short.
class Message
{
public:
    IXFS_PRINTF(2, 0) Message(const char* format, va_list arguments)
    {
        text_[0] = '\0'; // stays where the format cannot be expanded
        std::vsnprintf(text_, sizeof(text_), format, arguments);
        text_[sizeof(text_) - 1] = '\0';
    }
    const char* text() const { return text_; }

private:
    char text_[log_message_size];
};

void to_log(const _ixfs_control_t* handle, int severity, const char* tag, const Message& message)
{
    if (handle->log_callback != nullptr)
        handle->log_callback(severity, tag, message.text());
}

// A job log without a context is no job log: the callback would not know which job it is for.
void to_job_log(const _ixfs_control_t* handle, const Message& message)
{
    if (handle->job_log_callback != nullptr && handle->job_log_context != nullptr)
        handle->job_log_callback(handle->job_log_context, 0, 0, 0, 0, 0, "JBD - %s",
                                 message.text());
}

// A callback may change errno, and callers of the library read errno after a line was logged. So
// every way into the log gives errno back as it found it.
IXFS_PRINTF(4, 0)
void write_line(_ixfs_control_t* handle, const char* tag, int severity, const char* format,
                va_list arguments)
{
    const ACE_Errno_Guard errno_guard(errno);
    to_log(handle, severity, tag, Message(format, arguments));
}

IXFS_PRINTF(4, 0)
void write_server_line(_ixfs_control_t* handle, const char* tag, int severity, const char* format,
                       va_list arguments)
{
    const ACE_Errno_Guard errno_guard(errno);
    const Message message(format, arguments);
    to_log(handle, severity, tag, message);
    to_job_log(handle, message);
}

} // namespace

void _ixfs_log(_ixfs_control_t* handle, const char* tag, int severity, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    write_line(handle, tag, severity, format, arguments);
    va_end(arguments);
}

void _ixfs_server_log(_ixfs_control_t* handle, const char* tag, int severity, const char* format,
                      ...)
{
    va_list arguments;
    va_start(arguments, format);
    write_server_line(handle, tag, severity, format, arguments);
    va_end(arguments);
}

void Log::write(int severity, const char* format, va_list arguments) const
{
    if (handle_ != nullptr) {
        write_line(handle_, tag_, severity, format, arguments);
        return;
    }
    const ACE_Errno_Guard errno_guard(errno);
    gate_->pass(severity, tag_, Message(format, arguments).text());
}

void Log::info(const char* format, ...) const
{
    va_list arguments;
    va_start(arguments, format);
    write(IXFS_LOG_INF, format, arguments);
    va_end(arguments);
}

void Log::warning(const char* format, ...) const
{
    va_list arguments;
    va_start(arguments, format);
    write(IXFS_LOG_WRN, format, arguments);
    va_end(arguments);
}

void Log::error(const char* format, ...) const
{
    va_list arguments;
    va_start(arguments, format);
    write(IXFS_LOG_ERR, format, arguments);
    va_end(arguments);
}

void ServerLog::server_info(const char* format, ...) const
{
    va_list arguments;
    va_start(arguments, format);
    write_server_line(handle_, tag_, IXFS_LOG_INF, format, arguments);
    va_end(arguments);
}
