#include "interpose.h"

#include "ixfs.h"

#include <cstdarg>

#include <dlfcn.h>

namespace interpose
{

std::condition_variable detail::left;

namespace
{

// Returns the call as the program would have it without this file: a sanitizer's that is linked
// into the program, or else the next in the order of libraries.
template <typename Function>
Function* find_real(std::atomic<Function*>& found, Function* sanitizers, const char* symbol,
                    const char* version = nullptr)
{
    Function* real = found.load(std::memory_order_relaxed);
    if (real == nullptr) {
        void* const next =
            version != nullptr ? dlvsym(RTLD_NEXT, symbol, version) : dlsym(RTLD_NEXT, symbol);
        real = sanitizers != nullptr ? sanitizers : reinterpret_cast<Function*>(next);
        if (real == nullptr)
            std::abort();
        found.store(real, std::memory_order_relaxed);
    }
    return real;
}

} // namespace

// Begins the program's own definition of a call, whose body follows. In C++ it has a name of its
// own, since the system's declaration of the real one carries other attributes.
#define DEFINE_CALL(name, symbol, result, parameters)                                              \
    extern "C" result interposed_##name parameters __asm__(symbol);                                \
    extern "C" result __interceptor_##name parameters __attribute__((weak));                       \
    extern "C" result interposed_##name parameters

#define INTERPOSE_AS(name, version, reach, failure, result, parameters, arguments)                 \
    Interposable<result parameters> on_##name{#name, Reach::reach, Failure::failure};              \
    DEFINE_CALL(name, #name, result, parameters)                                                   \
    {                                                                                              \
        static std::atomic<result(*) parameters> found{nullptr};                                   \
        if (const std::optional<result> answer = on_##name.ask arguments)                          \
            return *answer;                                                                        \
        return find_real(found, &__interceptor_##name, #name, version) arguments;                  \
    }

#define INTERPOSE(name, result, parameters, arguments)                                             \
    INTERPOSE_AS(name, nullptr, every_thread, by_errno, result, parameters, arguments)

#define INTERPOSE_ALLOCATION(name, result, parameters, arguments)                                  \
    INTERPOSE_AS(name, nullptr, this_thread, by_errno, result, parameters, arguments)

INTERPOSE(access, int, (const char* path, int mode), (path, mode))
INTERPOSE(mkdir, int, (const char* path, mode_t mode), (path, mode))
INTERPOSE(link, int, (const char* existing, const char* path), (existing, path))
INTERPOSE(unlink, int, (const char* path), (path))
INTERPOSE(rmdir, int, (const char* path), (path))
INTERPOSE(opendir, DIR*, (const char* path), (path))
INTERPOSE(readdir, dirent*, (DIR * folder), (folder))
INTERPOSE(stat, int, (const char* path, struct stat* status), (path, status))
INTERPOSE(closedir, int, (DIR * folder), (folder))
INTERPOSE(lstat, int, (const char* path, struct stat* status), (path, status))
INTERPOSE(statx, int,
          (int folder, const char* path, int flags, unsigned int mask, struct statx* status),
          (folder, path, flags, mask, status))
INTERPOSE(umount2, int, (const char* mount_point, int flags), (mount_point, flags))
INTERPOSE(close, int, (int descriptor), (descriptor))
INTERPOSE(read, ssize_t, (int descriptor, void* bytes, size_t count), (descriptor, bytes, count))

INTERPOSE(fopen, FILE*, (const char* path, const char* mode), (path, mode))
INTERPOSE(fopen64, FILE*, (const char* path, const char* mode), (path, mode))
INTERPOSE(lseek64, off64_t, (int descriptor, off64_t offset, int whence),
          (descriptor, offset, whence))
INTERPOSE(fgets, char*, (char* text, int size, FILE* stream), (text, size, stream))
INTERPOSE(fputs, int, (const char* text, FILE* stream), (text, stream))
INTERPOSE(fflush, int, (FILE * stream), (stream))
INTERPOSE(fclose, int, (FILE * stream), (stream))
INTERPOSE(popen, FILE*, (const char* command, const char* mode), (command, mode))
INTERPOSE(pclose, int, (FILE * stream), (stream))

INTERPOSE(nanosleep, int, (const timespec* wanted, timespec* left), (wanted, left))
INTERPOSE(time, time_t, (time_t * now), (now))
INTERPOSE(uname, int, (utsname * names), (names))
INTERPOSE(setlocale, char*, (int category, const char* locale), (category, locale))
INTERPOSE(getrandom, ssize_t, (void* bytes, size_t size, unsigned int flags), (bytes, size, flags))

INTERPOSE(semget, int, (key_t key, int count, int flags), (key, count, flags))
INTERPOSE(semop, int, (int id, sembuf* operations, size_t count), (id, operations, count))
INTERPOSE(semctl, int, (int id, int number, int command, void* argument),
          (id, number, command, argument))
INTERPOSE_AS(pthread_create, nullptr, every_thread, by_result, int,
             (pthread_t * thread, const pthread_attr_t* attributes, void* (*start)(void*),
              void* argument),
             (thread, attributes, start, argument))
// The C library keeps an older version of the condition variable beside today's.
INTERPOSE_AS(pthread_cond_broadcast, "GLIBC_2.3.2", every_thread, by_result, int,
             (pthread_cond_t * condition), (condition))
INTERPOSE_AS(pthread_cond_timedwait, "GLIBC_2.3.2", every_thread, by_result, int,
             (pthread_cond_t * condition, pthread_mutex_t* mutex, const timespec* until),
             (condition, mutex, until))

Interposable<int(FILE*, const char*)> on_fprintf{"fprintf", Reach::every_thread, Failure::by_errno};
Interposable<int(const char*)> on_snprintf{"snprintf", Reach::every_thread, Failure::by_errno};

namespace
{

// What is variadic cannot hand its arguments on but to its relative that takes a list, which is
// real.
IXFS_PRINTF(3, 0)
int answer_snprintf(char* text, size_t size, const char* format, va_list arguments)
{
    if (const std::optional<int> answer = on_snprintf.ask(format))
        return *answer;
    return vsnprintf(text, size, format, arguments);
}

IXFS_PRINTF(2, 0)
int answer_fprintf(FILE* stream, const char* format, va_list arguments)
{
    if (const std::optional<int> answer = on_fprintf.ask(stream, format))
        return *answer;
    return vfprintf(stream, format, arguments);
}

} // namespace

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" // formats are checked where they are written

// A definition whose last parameter is called `format`, and what it answers.
#define DEFINE_VARIADIC(name, symbol, parameters, answer)                                          \
    extern "C" int interposed_##name parameters __asm__(symbol);                                   \
    extern "C" int interposed_##name parameters                                                    \
    {                                                                                              \
        va_list arguments;                                                                         \
        va_start(arguments, format);                                                               \
        const int length = answer;                                                                 \
        va_end(arguments);                                                                         \
        return length;                                                                             \
    }

// A hardened build calls the second of each two instead.
DEFINE_VARIADIC(snprintf, "snprintf", (char* text, size_t size, const char* format, ...),
                answer_snprintf(text, size, format, arguments))
DEFINE_VARIADIC(snprintf_chk, "__snprintf_chk",
                (char* text, size_t size, int, size_t, const char* format, ...),
                answer_snprintf(text, size, format, arguments))
DEFINE_VARIADIC(fprintf, "fprintf", (FILE * stream, const char* format, ...),
                answer_fprintf(stream, format, arguments))
DEFINE_VARIADIC(fprintf_chk, "__fprintf_chk", (FILE * stream, int, const char* format, ...),
                answer_fprintf(stream, format, arguments))

#pragma GCC diagnostic pop

INTERPOSE_ALLOCATION(malloc, void*, (size_t size), (size))
INTERPOSE_ALLOCATION(calloc, void*, (size_t count, size_t size), (count, size))
INTERPOSE_ALLOCATION(realloc, void*, (void* block, size_t size), (block, size))
INTERPOSE_ALLOCATION(strdup, char*, (const char* text), (text))

Interposable<void*(size_t)> on_new{"new", Reach::this_thread, Failure::by_errno};
Interposable<void*(size_t, const std::nothrow_t&)> on_new_nothrow{"new_nothrow", Reach::this_thread,
                                                                  Failure::by_errno};

// clang puts a sanitizer's operator new into the program itself, where there can be only one.
#ifndef IXFS_SANITIZER_DEFINES_NEW
DEFINE_CALL(new, "_Znwm", void*, (size_t size))
{
    static std::atomic<void* (*)(size_t)> found{nullptr};
    if (const std::optional<void*> answer = on_new.ask(size)) {
        if (*answer == nullptr)
            throw std::bad_alloc();
        return *answer;
    }
    return find_real(found, &__interceptor_new, "_Znwm")(size);
}

DEFINE_CALL(new_nothrow, "_ZnwmRKSt9nothrow_t", void*, (size_t size, const std::nothrow_t& tag))
{
    static std::atomic<void* (*)(size_t, const std::nothrow_t&)> found{nullptr};
    if (const std::optional<void*> answer = on_new_nothrow.ask(size, tag))
        return *answer;
    return find_real(found, &__interceptor_new_nothrow, "_ZnwmRKSt9nothrow_t")(size, tag);
}
#endif

} // namespace interpose
