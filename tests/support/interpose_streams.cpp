// Open files, by descriptors and by streams.
#include "interpose_call.h"

#include <cstdarg>
#include <cstring>

#include <sys/uio.h>
#include <unistd.h>

namespace interpose
{

Interposable<ssize_t(int, void*, size_t)> on_read{"read", Reach::every_thread, Failure::by_errno};
Interposable<ssize_t(int, const void*, size_t)> on_write{"write", Reach::every_thread,
                                                         Failure::by_errno};
Interposable<off64_t(int, off64_t, int)> on_seek{"seek", Reach::every_thread, Failure::by_errno};
Interposable<int(int)> on_close{"close", Reach::every_thread, Failure::by_errno};

namespace
{

int descriptor_of(FILE* stream)
{
    const int callers_errno = errno;
    const int descriptor = fileno(stream);
    errno = callers_errno;
    return descriptor;
}

bool begins_a_line(const FILE* stream)
{
    return stream->_IO_read_ptr >= stream->_IO_read_end ||
           stream->_IO_read_ptr == stream->_IO_read_base || stream->_IO_read_ptr[-1] == '\n';
}

// Whether a behaviour ends the reading from a stream, by a failure or at the end.
bool ends_reading(FILE* stream, void* bytes, size_t size)
{
    if (!on_read.is_asked_here() || !begins_a_line(stream))
        return false;
    const std::optional<ssize_t> answer = on_read.ask(descriptor_of(stream), bytes, size);
    if (!answer)
        return false;
    if (*answer > 0)
        give_up("a stream takes no bytes from a behaviour of on_read");
    stream->_flags |= *answer == 0 ? _IO_EOF_SEEN : _IO_ERR_SEEN;
    return true;
}

enum class Writing { is_real, is_done, fails };

Writing ask_writing(FILE* stream, const void* bytes, size_t size)
{
    if (stream == nullptr || !on_write.is_asked_here())
        return Writing::is_real;
    const std::optional<ssize_t> answer = on_write.ask(descriptor_of(stream), bytes, size);
    if (!answer)
        return Writing::is_real;
    if (*answer >= 0)
        return Writing::is_done;
    stream->_flags |= _IO_ERR_SEEN;
    return Writing::fails;
}

} // namespace

// ---- Reading ------------------------------------------------------------------------------------

ANSWERED_BY(on_read, (descriptor, bytes, count), read, ssize_t,
            (int descriptor, void* bytes, size_t count), (descriptor, bytes, count))
ANSWERED_BY(on_read, (descriptor, bytes, count), __read_chk, ssize_t,
            (int descriptor, void* bytes, size_t count, size_t room),
            (descriptor, bytes, count, room))
ANSWERED_BY(on_read, (descriptor, bytes, count), pread, ssize_t,
            (int descriptor, void* bytes, size_t count, off_t offset),
            (descriptor, bytes, count, offset))
ANSWERED_BY(on_read, (descriptor, bytes, count), pread64, ssize_t,
            (int descriptor, void* bytes, size_t count, off_t offset),
            (descriptor, bytes, count, offset))
ANSWERED_BY(on_read, (descriptor, parts->iov_base, parts->iov_len), readv, ssize_t,
            (int descriptor, const iovec* parts, int count), (descriptor, parts, count))

#define DEFINE_STREAM_READ(name, result, parameters, bytes, size, end, arguments)                  \
    INTERPOSED(name, result, parameters)                                                           \
    {                                                                                              \
        return ends_reading(stream, bytes, size) ? end : real_##name() arguments;                  \
    }

DEFINE_STREAM_READ(fgets, char*, (char* text, int size, FILE* stream), text,
                   static_cast<size_t>(size), nullptr, (text, size, stream))
DEFINE_STREAM_READ(__fgets_chk, char*, (char* text, size_t room, int size, FILE* stream), text,
                   static_cast<size_t>(size), nullptr, (text, room, size, stream))
DEFINE_STREAM_READ(fgetc, int, (FILE * stream), nullptr, 1, EOF, (stream))
DEFINE_STREAM_READ(getc, int, (FILE * stream), nullptr, 1, EOF, (stream))
DEFINE_STREAM_READ(getline, ssize_t, (char** line, size_t* size, FILE* stream), nullptr, 0, -1,
                   (line, size, stream))
DEFINE_STREAM_READ(getdelim, ssize_t, (char** line, size_t* size, int end, FILE* stream), nullptr,
                   0, -1, (line, size, end, stream))
DEFINE_STREAM_READ(__getdelim, ssize_t, (char** line, size_t* size, int end, FILE* stream), nullptr,
                   0, -1, (line, size, end, stream))
DEFINE_STREAM_READ(fread, size_t, (void* bytes, size_t size, size_t count, FILE* stream), bytes,
                   size* count, 0, (bytes, size, count, stream))
DEFINE_STREAM_READ(__fread_chk, size_t,
                   (void* bytes, size_t room, size_t size, size_t count, FILE* stream), bytes,
                   size* count, 0, (bytes, room, size, count, stream))

// ---- Writing ------------------------------------------------------------------------------------

ANSWERED_BY(on_write, (descriptor, bytes, count), write, ssize_t,
            (int descriptor, const void* bytes, size_t count), (descriptor, bytes, count))
ANSWERED_BY(on_write, (descriptor, bytes, count), pwrite, ssize_t,
            (int descriptor, const void* bytes, size_t count, off_t offset),
            (descriptor, bytes, count, offset))
ANSWERED_BY(on_write, (descriptor, bytes, count), pwrite64, ssize_t,
            (int descriptor, const void* bytes, size_t count, off_t offset),
            (descriptor, bytes, count, offset))
ANSWERED_BY(on_write, (descriptor, parts->iov_base, parts->iov_len), writev, ssize_t,
            (int descriptor, const iovec* parts, int count), (descriptor, parts, count))

#define DEFINE_STREAM_WRITE(name, result, parameters, bytes, size, done, failed, real)             \
    INTERPOSED(name, result, parameters)                                                           \
    {                                                                                              \
        switch (ask_writing(stream, bytes, size)) {                                                \
        case Writing::is_done:                                                                     \
            return done;                                                                           \
        case Writing::fails:                                                                       \
            return failed;                                                                         \
        default:                                                                                   \
            return real;                                                                           \
        }                                                                                          \
    }

DEFINE_STREAM_WRITE(fputs, int, (const char* text, FILE* stream), text, std::strlen(text), 1, EOF,
                    real_fputs()(text, stream))
DEFINE_STREAM_WRITE(fputc, int, (int byte, FILE* stream), &byte, 1, byte, EOF,
                    real_fputc()(byte, stream))
DEFINE_STREAM_WRITE(putc, int, (int byte, FILE* stream), &byte, 1, byte, EOF,
                    real_putc()(byte, stream))
DEFINE_STREAM_WRITE(fwrite, size_t, (const void* bytes, size_t size, size_t count, FILE* stream),
                    bytes, size* count, count, 0, real_fwrite()(bytes, size, count, stream))
DEFINE_STREAM_WRITE(vfprintf, int, (FILE * stream, const char* format, va_list arguments), format,
                    std::strlen(format), 0, -1, real_vfprintf()(stream, format, arguments))
DEFINE_STREAM_WRITE(__vfprintf_chk, int,
                    (FILE * stream, int flag, const char* format, va_list arguments), format,
                    std::strlen(format), 0, -1,
                    real___vfprintf_chk()(stream, flag, format, arguments))
DEFINE_STREAM_WRITE(fflush, int, (FILE * stream), nullptr, 0, 0, EOF, real_fflush()(stream))

#define DEFINE_FPRINTF(name, symbol, parameters)                                                   \
    extern "C" int interposed_##name parameters __asm__(symbol);                                   \
    extern "C" int interposed_##name parameters                                                    \
    {                                                                                              \
        va_list arguments;                                                                         \
        va_start(arguments, format);                                                               \
        const int length = interposed_vfprintf(stream, format, arguments);                         \
        va_end(arguments);                                                                         \
        return length;                                                                             \
    }

// A hardened build calls the second.
DEFINE_FPRINTF(fprintf, "fprintf", (FILE * stream, const char* format, ...))
DEFINE_FPRINTF(fprintf_chk, "__fprintf_chk", (FILE * stream, int, const char* format, ...))

// ---- Seeking and closing ------------------------------------------------------------------------

ANSWERED_BY(on_seek, (descriptor, offset, whence), lseek, off64_t,
            (int descriptor, off64_t offset, int whence), (descriptor, offset, whence))
ANSWERED_BY(on_seek, (descriptor, offset, whence), lseek64, off64_t,
            (int descriptor, off64_t offset, int whence), (descriptor, offset, whence))
ANSWERED_BY(on_seek, (descriptor_of(stream), offset, whence), fseek, int,
            (FILE * stream, long offset, int whence), (stream, offset, whence))
ANSWERED_BY(on_seek, (descriptor_of(stream), offset, whence), fseeko, int,
            (FILE * stream, off64_t offset, int whence), (stream, offset, whence))

namespace
{

// Makes the real call in any case: what is closed must not be closed again.
template <typename Close>
int close_as_answered(int descriptor, Close real_close)
{
    const std::optional<int> answer = on_close.ask(descriptor);
    const int answers_errno = errno;
    const int result = real_close();
    if (!answer)
        return result;
    errno = answers_errno;
    return *answer;
}

} // namespace

// Of a number that nothing is open under, nobody is asked.
INTERPOSED(close, int, (int descriptor))
{
    if (!on_close.is_asked_here() || fcntl(descriptor, F_GETFD) == -1)
        return real_close()(descriptor);
    return close_as_answered(descriptor, [&] { return real_close()(descriptor); });
}

INTERPOSED(fclose, int, (FILE * stream))
{
    return close_as_answered(descriptor_of(stream), [&] { return real_fclose()(stream); });
}

} // namespace interpose
