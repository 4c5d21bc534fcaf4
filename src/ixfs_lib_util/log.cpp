#include "log.h"

#include "bounded_text.h"
#include "control.h"
#include "errno_keeper.h"

#include <cstdarg>
#include <cstdio>

namespace
{

// One formatted message. On the stack, so that a line costs no allocation.
class Message
{
public:
    IXFS_PRINTF(2, 0) Message(const char* format, va_list arguments)
    {
        text_[0] = '\0';
        std::vsnprintf(text_, sizeof(text_), format, arguments);
        text_[sizeof(text_) - 1] = '\0';
    }
    const char* text() const { return text_; }

private:
    char text_[log_message_size];
};

void to_log(const _ixfs_control_t* handle, const char* function_tag, int severity,
            const Message& message)
{
    if (handle->log_callback != nullptr)
        handle->log_callback(severity, function_tag, message.text());
}

void to_job_log(const _ixfs_control_t* handle, const Message& message)
{
    if (handle->job_log_callback != nullptr && handle->job_log_context != nullptr)
        handle->job_log_callback(handle->job_log_context, 0, 0, 0, 0, 0, "JBD - %s",
                                 message.text());
}

} // namespace

void _ixfs_log(_ixfs_control_t* handle, const char* function_tag, int severity, const char* format,
               ...)
{
    const ErrnoKeeper errno_keeper;
    va_list arguments;
    va_start(arguments, format);
    const Message message(format, arguments);
    va_end(arguments);
    to_log(handle, function_tag, severity, message);
}

void _ixfs_server_log(_ixfs_control_t* handle, const char* function_tag, int severity,
                      const char* format, ...)
{
    const ErrnoKeeper errno_keeper;
    va_list arguments;
    va_start(arguments, format);
    const Message message(format, arguments);
    va_end(arguments);
    to_log(handle, function_tag, severity, message);
    to_job_log(handle, message);
}

void log_from_validation_thread(_ixfs_control_t* handle, const char* function_tag, int severity,
                                const char* format, ...)
{
    const ErrnoKeeper errno_keeper;
    va_list arguments;
    va_start(arguments, format);
    const Message message(format, arguments);
    va_end(arguments);
    const std::lock_guard<std::mutex> gate(handle->thread_callback_gate);
    if (!handle->terminated)
        to_log(handle, function_tag, severity, message);
}
