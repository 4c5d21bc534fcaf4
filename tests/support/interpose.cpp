#include "interpose_call.h"

#include "ixfs.h"

#include <cstdarg>
#include <cstring>

#include <dlfcn.h>
#include <unistd.h>

namespace interpose
{

std::condition_variable detail::left;

void* next_symbol(const char* symbol, const char* version)
{
    void* const next =
        version != nullptr ? dlvsym(RTLD_NEXT, symbol, version) : dlsym(RTLD_NEXT, symbol);
    if (next == nullptr)
        std::abort();
    return next;
}

void give_up(const char* why)
{
    std::fprintf(stderr, "interpose: %s\n", why);
    std::abort();
}

FullPath::FullPath(int folder, const char* path) : path_(path)
{
    constexpr char descriptors[] = "/proc/self/fd/";
    constexpr std::size_t length = sizeof(descriptors) - 1;
    if (path == nullptr)
        return;
    const char* rest = path;
    if (std::strncmp(path, descriptors, length) == 0) {
        rest = path + length + std::strspn(path + length, "0123456789");
        const bool is_number = rest != path + length && (*rest == '\0' || *rest == '/');
        if (!is_number)
            return;
        folder = std::atoi(path + length);
    } else if (*path == '/' || folder == AT_FDCWD)
        return;
    const int callers_errno = errno;
    char link[sizeof(descriptors) + sizeof("-2147483648")];
    snprintf(link, sizeof(link), "%s%d", descriptors, folder);
    const ssize_t size = readlink(link, buffer_, sizeof(buffer_) - PATH_MAX);
    errno = callers_errno;
    if (size == -1)
        return;
    const char* const separator = *rest == '\0' || *rest == '/' ? "" : "/";
    snprintf(buffer_ + size, sizeof(buffer_) - static_cast<std::size_t>(size), "%s%s", separator,
             rest);
    path_ = buffer_;
}

// ---- Processes, host, locks and threads ---------------------------------------------------------

Interposable<FILE*(const char*, const char*)> on_popen{"popen", Reach::every_thread,
                                                       Failure::by_errno};
Interposable<int(FILE*)> on_pclose{"pclose", Reach::every_thread, Failure::by_errno};
Interposable<int(const char*, int)> on_umount2{"umount2", Reach::every_thread, Failure::by_errno};
Interposable<int(utsname*)> on_uname{"uname", Reach::every_thread, Failure::by_errno};
Interposable<char*(int, const char*)> on_setlocale{"setlocale", Reach::every_thread,
                                                   Failure::by_errno};
Interposable<int(key_t, int, int)> on_semget{"semget", Reach::every_thread, Failure::by_errno};
Interposable<int(int, sembuf*, size_t)> on_semop{"semop", Reach::every_thread, Failure::by_errno};
Interposable<int(int, int, int, void*)> on_semctl{"semctl", Reach::every_thread, Failure::by_errno};
Interposable<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)> on_pthread_create{
    "pthread_create", Reach::every_thread, Failure::by_result};
Interposable<int(pthread_cond_t*)> on_pthread_cond_broadcast{
    "pthread_cond_broadcast", Reach::every_thread, Failure::by_result};

ANSWERED_BY(on_popen, (command, mode), popen, FILE*, (const char* command, const char* mode),
            (command, mode))
ANSWERED_BY(on_pclose, (stream), pclose, int, (FILE * stream), (stream))
ANSWERED_BY(on_umount2, (mount_point, flags), umount2, int, (const char* mount_point, int flags),
            (mount_point, flags))
ANSWERED_BY(on_uname, (names), uname, int, (utsname * names), (names))
ANSWERED_BY(on_setlocale, (category, locale), setlocale, char*, (int category, const char* locale),
            (category, locale))
ANSWERED_BY(on_semget, (key, count, flags), semget, int, (key_t key, int count, int flags),
            (key, count, flags))
ANSWERED_BY(on_semop, (id, operations, count), semop, int,
            (int id, sembuf* operations, size_t count), (id, operations, count))
ANSWERED_BY(on_semctl, (id, number, command, argument), semctl, int,
            (int id, int number, int command, void* argument), (id, number, command, argument))
ANSWERED_BY(on_pthread_create, (thread, attributes, start, argument), pthread_create, int,
            (pthread_t * thread, const pthread_attr_t* attributes, void* (*start)(void*),
             void* argument),
            (thread, attributes, start, argument))

// The C library keeps an older version of the condition variable beside today's.
INTERPOSED_SYMBOL(pthread_cond_broadcast, "pthread_cond_broadcast", "GLIBC_2.3.2", int,
                  (pthread_cond_t * condition))
{
    if (const std::optional<int> answer = on_pthread_cond_broadcast.ask(condition))
        return *answer;
    return real_pthread_cond_broadcast()(condition);
}

// ---- Formatting ---------------------------------------------------------------------------------

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

} // namespace

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" // formats are checked where they are written

#define DEFINE_SNPRINTF(name, symbol, parameters)                                                  \
    extern "C" int interposed_##name parameters __asm__(symbol);                                   \
    extern "C" int interposed_##name parameters                                                    \
    {                                                                                              \
        va_list arguments;                                                                         \
        va_start(arguments, format);                                                               \
        const int length = answer_snprintf(text, size, format, arguments);                         \
        va_end(arguments);                                                                         \
        return length;                                                                             \
    }

// A hardened build calls the second.
DEFINE_SNPRINTF(snprintf, "snprintf", (char* text, size_t size, const char* format, ...))
DEFINE_SNPRINTF(snprintf_chk, "__snprintf_chk",
                (char* text, size_t size, int, size_t, const char* format, ...))

#pragma GCC diagnostic pop

} // namespace interpose
