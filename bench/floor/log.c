#include "log.h"

#include <stdarg.h>
#include <stdio.h>

void floor_log(floor_log_callback callback, const char* tag, int severity, const char* format, ...)
{
    char message[2048];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(message, sizeof(message), format, arguments);
    va_end(arguments);
    callback(severity, tag, message);
}
