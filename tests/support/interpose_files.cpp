// Files and folders by their paths.
#include "interpose_call.h"

#include <linux/openat2.h>
#include <sys/random.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace interpose
{

Interposable<int(const char*, int)> on_access{"access", Reach::every_thread, Failure::by_errno};
Interposable<int(const char*, mode_t)> on_mkdir{"mkdir", Reach::every_thread, Failure::by_errno};
Interposable<int(const char*, const char*)> on_link{"link", Reach::every_thread, Failure::by_errno};
Interposable<int(const char*)> on_unlink{"unlink", Reach::every_thread, Failure::by_errno};
Interposable<int(const char*)> on_rmdir{"rmdir", Reach::every_thread, Failure::by_errno};
Interposable<int(const char*, int)> on_open{"open", Reach::every_thread, Failure::by_errno};
Interposable<int(const char*)> on_opendir{"opendir", Reach::every_thread, Failure::by_errno};
Interposable<dirent*(DIR*)> on_readdir{"readdir", Reach::every_thread, Failure::by_errno};
Interposable<int(DIR*)> on_closedir{"closedir", Reach::every_thread, Failure::by_errno};
Interposable<int(const char*, struct stat*)> on_stat{"stat", Reach::every_thread,
                                                     Failure::by_errno};
Interposable<ssize_t(void*, size_t, unsigned int)> on_getrandom{"getrandom", Reach::every_thread,
                                                                Failure::by_errno};

ANSWERED_BY(on_access, (FullPath(path), mode), access, int, (const char* path, int mode),
            (path, mode))
ANSWERED_BY(on_access, (FullPath(path), mode), euidaccess, int, (const char* path, int mode),
            (path, mode))
ANSWERED_BY(on_access, (FullPath(path), mode), eaccess, int, (const char* path, int mode),
            (path, mode))
ANSWERED_BY(on_access, (FullPath(folder, path), mode), faccessat, int,
            (int folder, const char* path, int mode, int flags), (folder, path, mode, flags))

ANSWERED_BY(on_mkdir, (FullPath(path), mode), mkdir, int, (const char* path, mode_t mode),
            (path, mode))
ANSWERED_BY(on_mkdir, (FullPath(folder, path), mode), mkdirat, int,
            (int folder, const char* path, mode_t mode), (folder, path, mode))

ANSWERED_BY(on_link, (FullPath(existing), FullPath(path)), link, int,
            (const char* existing, const char* path), (existing, path))
ANSWERED_BY(on_link, (FullPath(old_folder, existing), FullPath(folder, path)), linkat, int,
            (int old_folder, const char* existing, int folder, const char* path, int flags),
            (old_folder, existing, folder, path, flags))

// ---- Removal ------------------------------------------------------------------------------------

ANSWERED_BY(on_unlink, (FullPath(path)), unlink, int, (const char* path), (path))
ANSWERED_BY(on_rmdir, (FullPath(path)), rmdir, int, (const char* path), (path))

INTERPOSED(unlinkat, int, (int folder, const char* path, int flags))
{
    auto& hook = (flags & AT_REMOVEDIR) != 0 ? on_rmdir : on_unlink;
    if (hook.is_installed()) {
        if (const std::optional<int> answer = hook.ask(FullPath(folder, path)))
            return *answer;
    }
    return real_unlinkat()(folder, path, flags);
}

INTERPOSED(remove, int, (const char* path))
{
    if (!on_unlink.is_asked_here() && !on_rmdir.is_asked_here())
        return real_remove()(path);
    if (interposed_unlink(path) == 0)
        return 0;
    return errno == EISDIR ? interposed_rmdir(path) : -1;
}

// ---- Opening ------------------------------------------------------------------------------------

namespace
{

std::optional<int> ask_open(int folder, const char* path, int flags)
{
    if ((flags & O_DIRECTORY) != 0)
        return on_opendir.is_installed() ? on_opendir.ask(FullPath(folder, path)) : std::nullopt;
    return on_open.is_installed() ? on_open.ask(FullPath(folder, path), flags) : std::nullopt;
}

int flags_of(const char* mode)
{
    const int access = std::string_view(mode).find('+') != std::string_view::npos ? O_RDWR : 0;
    switch (*mode) {
    case 'w':
        return (access != 0 ? access : O_WRONLY) | O_CREAT | O_TRUNC;
    case 'a':
        return (access != 0 ? access : O_WRONLY) | O_CREAT | O_APPEND;
    default:
        return access;
    }
}

// The rest of an answer is real, too: what asks for memory here is not what a test let fail.
FILE* stream_of(int descriptor, const char* mode)
{
    const RealCalls of_the_answer;
    return descriptor != -1 ? fdopen(descriptor, mode) : nullptr;
}

DIR* folder_of(int descriptor)
{
    const RealCalls of_the_answer;
    return descriptor != -1 ? fdopendir(descriptor) : nullptr;
}

} // namespace

#define DEFINE_OPEN(name, parameters, folder, arguments)                                           \
    INTERPOSED(name, int, parameters)                                                              \
    {                                                                                              \
        if (const std::optional<int> answer = ask_open(folder, path, flags))                       \
            return *answer;                                                                        \
        return real_##name() arguments;                                                            \
    }

// The mode is there only where a file may be made. Handing on what is not does no harm.
DEFINE_OPEN(open, (const char* path, int flags, mode_t mode), AT_FDCWD, (path, flags, mode))
DEFINE_OPEN(open64, (const char* path, int flags, mode_t mode), AT_FDCWD, (path, flags, mode))
DEFINE_OPEN(openat, (int folder, const char* path, int flags, mode_t mode), folder,
            (folder, path, flags, mode))
DEFINE_OPEN(openat64, (int folder, const char* path, int flags, mode_t mode), folder,
            (folder, path, flags, mode))
// What a hardened build calls without a mode.
DEFINE_OPEN(__open_2, (const char* path, int flags), AT_FDCWD, (path, flags))
DEFINE_OPEN(__open64_2, (const char* path, int flags), AT_FDCWD, (path, flags))
DEFINE_OPEN(__openat_2, (int folder, const char* path, int flags), folder, (folder, path, flags))
DEFINE_OPEN(__openat64_2, (int folder, const char* path, int flags), folder, (folder, path, flags))

#define DEFINE_FOPEN(name)                                                                         \
    INTERPOSED(name, FILE*, (const char* path, const char* mode))                                  \
    {                                                                                              \
        if (const std::optional<int> answer = on_open.ask(FullPath(path), flags_of(mode)))         \
            return stream_of(*answer, mode);                                                       \
        return real_##name()(path, mode);                                                          \
    }

DEFINE_FOPEN(fopen)
DEFINE_FOPEN(fopen64) // what C++ file streams open files with

INTERPOSED(opendir, DIR*, (const char* path))
{
    if (const std::optional<int> answer = on_opendir.ask(FullPath(path)))
        return folder_of(*answer);
    return real_opendir()(path);
}

// The two are alike where offsets have 64 bits.
ANSWERED_BY(on_readdir, (folder), readdir, dirent*, (DIR * folder), (folder))
ANSWERED_BY(on_readdir, (folder), readdir64, dirent*, (DIR * folder), (folder))
ANSWERED_BY(on_closedir, (folder), closedir, int, (DIR * folder), (folder))

// ---- Status -------------------------------------------------------------------------------------

// The two kinds of each are alike where offsets have 64 bits.
#define DEFINE_STAT(name, parameters, path, arguments)                                             \
    ANSWERED_BY(on_stat, (path, status), name, int, parameters, arguments)

DEFINE_STAT(stat, (const char* path, struct stat* status), FullPath(path), (path, status))
DEFINE_STAT(stat64, (const char* path, struct stat* status), FullPath(path), (path, status))
DEFINE_STAT(lstat, (const char* path, struct stat* status), FullPath(path), (path, status))
DEFINE_STAT(lstat64, (const char* path, struct stat* status), FullPath(path), (path, status))
DEFINE_STAT(fstat, (int descriptor, struct stat* status), FullPath(descriptor, ""),
            (descriptor, status))
DEFINE_STAT(fstat64, (int descriptor, struct stat* status), FullPath(descriptor, ""),
            (descriptor, status))
DEFINE_STAT(fstatat, (int folder, const char* path, struct stat* status, int flags),
            FullPath(folder, path), (folder, path, status, flags))
DEFINE_STAT(fstatat64, (int folder, const char* path, struct stat* status, int flags),
            FullPath(folder, path), (folder, path, status, flags))

namespace
{

void convert(const struct stat& from, struct statx* to)
{
    *to = {};
    to->stx_mask = STATX_BASIC_STATS;
    to->stx_mode = static_cast<decltype(to->stx_mode)>(from.st_mode);
    to->stx_nlink = static_cast<decltype(to->stx_nlink)>(from.st_nlink);
    to->stx_uid = from.st_uid;
    to->stx_gid = from.st_gid;
    to->stx_ino = from.st_ino;
    to->stx_size = static_cast<decltype(to->stx_size)>(from.st_size);
    to->stx_dev_major = major(from.st_dev);
    to->stx_dev_minor = minor(from.st_dev);
}

} // namespace

INTERPOSED(statx, int,
           (int folder, const char* path, int flags, unsigned int mask, struct statx* status))
{
    if (!on_stat.is_installed())
        return real_statx()(folder, path, flags, mask, status);
    struct stat answered {
    };
    if (const std::optional<int> answer = on_stat.ask(FullPath(folder, path), &answered)) {
        if (*answer == 0)
            convert(answered, status);
        return *answer;
    }
    return real_statx()(folder, path, flags, mask, status);
}

// ---- Calls without a function of their own ------------------------------------------------------

ANSWERED_BY(on_getrandom, (bytes, size, flags), getrandom, ssize_t,
            (void* bytes, size_t size, unsigned int flags), (bytes, size, flags))

namespace
{

std::optional<long> ask_syscall(long number, long first, long second, long third)
{
    const int folder = static_cast<int>(first);
    const auto* const path = reinterpret_cast<const char*>(second);
    std::optional<int> answer;
    switch (number) {
    case SYS_openat2:
        answer = ask_open(folder, path,
                          static_cast<int>(reinterpret_cast<const open_how*>(third)->flags));
        break;
    case SYS_faccessat:
    case SYS_faccessat2:
        answer = on_access.ask(FullPath(folder, path), static_cast<int>(third));
        break;
    case SYS_getrandom:
        return on_getrandom.ask(reinterpret_cast<void*>(first), static_cast<size_t>(second),
                                static_cast<unsigned int>(third));
    default:
        break;
    }
    return answer ? std::optional<long>(*answer) : std::nullopt;
}

} // namespace

// Handing on arguments that are not there does no harm.
INTERPOSED(syscall, long, (long number, long a, long b, long c, long d, long e, long f))
{
    if (const std::optional<long> answer = ask_syscall(number, a, b, c))
        return *answer;
    return real_syscall()(number, a, b, c, d, e, f);
}

} // namespace interpose
