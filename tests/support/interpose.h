// System calls under a test's control.
//
// A test program that links ixfs_test_support defines the calls listed at the end itself. Being the
// program's, its symbols win over the C library's, so libixfs and ACE call them too. Each makes the
// real call unless a test has set a behaviour for it:
//
//     auto link = interpose::on_link.fails(EMLINK);
//     EXPECT_EQ(_ixfs_create_hard_link(handle, "a", "b"), EMLINK);
//     EXPECT_EQ(link.calls(), 1);
//
// or, for what is not just a failure (an empty optional asks for the real call):
//
//     auto access = interpose::on_access([&](const char* path, int) -> std::optional<int> {
//         paths.push_back(path);
//         return std::nullopt;
//     });
//
// A behaviour holds for as long as the hook that installed it lives. It is asked for the calls of
// the whole process, the test's own included, on any thread, perhaps on several at once; for memory
// and clocks only for those of the thread that installed it. What a behaviour itself calls is
// always real. errno is as the behaviour left it, and untouched where it asks for the real call.
//
// A hook stands for what is done and not for one call: access() and faccessat() are the same to it.
// So a library that takes another way to the same end passes the same tests.
#ifndef IXFS_TESTS_INTERPOSE_H
#define IXFS_TESTS_INTERPOSE_H

#include <atomic>
#include <cerrno>
#include <climits>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

#include <dirent.h>
#include <pthread.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/utsname.h>

namespace interpose
{

// How a call tells of its failure.
enum class Failure {
    by_errno, // -1 or null, and errno
    by_result // the result is the error number
};

// Whose calls a behaviour is asked for.
enum class Reach { every_thread, this_thread };

inline constexpr int always = INT_MAX;

namespace detail
{
inline std::mutex mutex;                   // guards which behaviours are installed and running
extern std::condition_variable left;       // a thread has left a behaviour
inline thread_local bool inside_behaviour; // this thread's calls are real
} // namespace detail

// Makes this thread's calls real for as long as it lives: for a test's own means, which a behaviour
// is not meant for.
class RealCalls
{
public:
    RealCalls() : outer_(std::exchange(detail::inside_behaviour, true)) {}
    ~RealCalls() { detail::inside_behaviour = outer_; }
    RealCalls(const RealCalls&) = delete;
    RealCalls& operator=(const RealCalls&) = delete;

private:
    bool outer_;
};

template <typename Signature>
class Interposable;

template <typename Result, typename... Args>
class Interposable<Result(Args...)>
{
    struct Installed;

public:
    using Behaviour = std::function<std::optional<Result>(Args...)>;

    // Keeps a behaviour in place. Its end waits for other threads that are inside the behaviour, so
    // release those first where the behaviour holds them up.
    class Hook
    {
    public:
        Hook(Hook&&) noexcept = default;
        Hook& operator=(Hook&&) = delete;
        ~Hook()
        {
            if (installed_ != nullptr)
                installed_->call.uninstall(*installed_);
        }

        // How often the behaviour was asked so far.
        int calls() const
        {
            const std::lock_guard<std::mutex> lock(detail::mutex);
            return installed_->calls;
        }

    private:
        friend Interposable;
        explicit Hook(std::unique_ptr<Installed> installed) : installed_(std::move(installed)) {}

        std::unique_ptr<Installed> installed_;
    };

    constexpr Interposable(const char* name, Reach reach, Failure failure)
        : name_(name), reach_(reach), failure_(failure)
    {
    }

    // Installs a behaviour. One at a time: a second one for the same call ends the program.
    [[nodiscard]] Hook operator()(Behaviour behaviour)
    {
        auto installed = std::make_unique<Installed>(*this, std::move(behaviour));
        const std::lock_guard<std::mutex> lock(detail::mutex);
        if (installed_ != nullptr) {
            std::fprintf(stderr, "interpose: %s has a behaviour already\n", name_);
            std::abort();
        }
        __atomic_store_n(&thread_, pthread_self(), __ATOMIC_RELAXED);
        installed_ = installed.get();
        return Hook(std::move(installed));
    }

    // Only counts.
    [[nodiscard]] Hook watch()
    {
        return (*this)([](Args...) { return std::optional<Result>(); });
    }

    [[nodiscard]] Hook returns(Result result)
    {
        return (*this)([result](Args...) { return std::optional<Result>(result); });
    }

    // Lets `count` calls fail with `error`, beginning with call number `first`. The others are
    // real.
    [[nodiscard]] Hook fails(int error, int first = 1, int count = always)
    {
        auto made = std::make_shared<std::atomic<int>>(0);
        return (*this)([this, made, error, first, count](Args...) {
            const int call = ++*made;
            const bool hit = call >= first && call - first < count;
            return hit ? std::optional<Result>(failed(error)) : std::nullopt;
        });
    }

    [[nodiscard]] Hook fails_once(int error, int call = 1) { return fails(error, call, 1); }

    // What a call that fails with `error` gives; sets errno where the call does.
    Result failed(int error) const
    {
        if constexpr (std::is_same_v<Result, int>) {
            if (failure_ == Failure::by_result)
                return error;
        }
        errno = error;
        if constexpr (std::is_pointer_v<Result>)
            return nullptr;
        else
            return static_cast<Result>(-1);
    }

    const char* name() const { return name_; }

    // False where no behaviour can be asked for any call: then arguments need not be made ready.
    bool is_installed() const { return installed_.load(std::memory_order_acquire) != nullptr; }

    // Whether a behaviour would be asked for a call made here.
    bool is_asked_here() const
    {
        if (installed_.load(std::memory_order_acquire) == nullptr || detail::inside_behaviour)
            return false;
        const std::lock_guard<std::mutex> lock(detail::mutex);
        const Installed* const installed = installed_;
        return installed != nullptr && reaches_here();
    }

    // For the program's own definition of the call: asks the behaviour, if there is one.
    std::optional<Result> ask(Args... args)
    {
        Installed* const installed = enter();
        if (installed == nullptr)
            return std::nullopt;
        const int callers_errno = errno;
        detail::inside_behaviour = true;
        std::optional<Result> result = installed->behaviour(args...);
        const int behaviours_errno = errno;
        leave(*installed);
        detail::inside_behaviour = false;
        errno = result ? behaviours_errno : callers_errno;
        return result;
    }

private:
    struct Installed {
        Installed(Interposable& call_, Behaviour behaviour_)
            : call(call_), behaviour(std::move(behaviour_))
        {
        }

        Interposable& call;
        Behaviour behaviour;
        int calls = 0;
        int running = 0; // threads inside the behaviour
    };

    bool reaches_here() const
    {
        return reach_ == Reach::every_thread ||
               __atomic_load_n(&thread_, __ATOMIC_RELAXED) == pthread_self();
    }

    // A sanitizer allocates memory in a thread that is not ready for more. So what does not reach
    // the thread takes no lock and makes no call.
    Installed* enter()
    {
        if (installed_.load(std::memory_order_acquire) == nullptr || detail::inside_behaviour ||
            !reaches_here())
            return nullptr;
        const std::lock_guard<std::mutex> lock(detail::mutex);
        Installed* const installed = installed_;
        if (installed == nullptr)
            return nullptr;
        ++installed->calls;
        ++installed->running;
        return installed;
    }

    void leave(Installed& installed)
    {
        const std::lock_guard<std::mutex> lock(detail::mutex);
        --installed.running;
        detail::left.notify_all();
    }

    void uninstall(Installed& installed)
    {
        std::unique_lock<std::mutex> lock(detail::mutex);
        installed_ = nullptr;
        detail::left.wait(lock, [&] { return installed.running == 0; });
    }

    const char* name_;
    Reach reach_;
    Failure failure_;
    pthread_t thread_{}; // that installed the behaviour
    std::atomic<Installed*> installed_{nullptr};
};

// Each of these answers for all the calls that do the same, whichever the caller takes. A path is
// as the caller gave it, but completed where it is relative to an open folder.

// Files and folders
extern Interposable<int(const char* path, int mode)> on_access;
extern Interposable<int(const char* path, mode_t)> on_mkdir;
extern Interposable<int(const char* existing, const char* path)> on_link;
extern Interposable<int(const char* path)> on_unlink;
extern Interposable<int(const char* path)> on_rmdir;
// stat and its kin, lstat and statx among them. What an answer leaves out, such as whether there is
// a mount, a statx does not know.
extern Interposable<int(const char* path, struct stat*)> on_stat;
extern Interposable<int(const char* path, int)> on_umount2;
// To open a file and to open a folder. An answer is a descriptor, also where the caller wants a
// stream.
extern Interposable<int(const char* path, int flags)> on_open;
extern Interposable<int(const char* path)> on_opendir;
extern Interposable<dirent*(DIR*)> on_readdir;
extern Interposable<int(DIR*)> on_closedir;

// Open files, by their descriptors; -1 for streams without one. A stream's reading is asked for at
// the start of each line and where nothing is left in its buffer, its writing at each call,
// flushing included; an answer of 0 bytes read is the end of the file, and a stream takes no other
// bytes.
extern Interposable<ssize_t(int, void*, size_t)> on_read;
extern Interposable<ssize_t(int, const void*, size_t)> on_write;
extern Interposable<off64_t(int, off64_t, int)> on_seek;
// Of a file or a stream, not of a folder. What is closed is closed, whatever the answer.
extern Interposable<int(int)> on_close;

// Processes and text
extern Interposable<FILE*(const char* command, const char* mode)> on_popen;
extern Interposable<int(FILE*)> on_pclose;
extern Interposable<int(const char* format)> on_snprintf;

// Time and host. All clocks but those of processor time are asked for, on the installing thread
// only. A sleep's length is relative, whatever the call.
extern Interposable<int(clockid_t, timespec*)> on_time;
extern Interposable<int(const timespec* wanted, timespec* left)> on_sleep;
extern Interposable<int(utsname*)> on_uname;
extern Interposable<char*(int, const char*)> on_setlocale;
extern Interposable<ssize_t(void*, size_t, unsigned int)> on_getrandom;

// Locks and threads. The fourth argument of semctl is its optional one, a union of an int and
// pointers. The end of a timed wait is one of the real-time clock, whichever the caller goes by.
extern Interposable<int(key_t, int, int)> on_semget;
extern Interposable<int(int, sembuf*, size_t)> on_semop;
extern Interposable<int(int, int, int, void*)> on_semctl;
extern Interposable<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>
    on_pthread_create;
extern Interposable<int(pthread_cond_t*)> on_pthread_cond_broadcast;
extern Interposable<int(pthread_cond_t*, pthread_mutex_t*, const timespec*)>
    on_pthread_cond_timedwait;

// Memory, by malloc and its kin, strdup and operator new; asked for the installing thread only. A
// null answer to a throwing operator new becomes std::bad_alloc. operator new is real in programs
// that clang builds with a sanitizer.
extern Interposable<void*(size_t)> on_allocation;
bool allocation_throws(); // whether it would: for a behaviour to ask
// free alone. Its behaviours only look on: whatever they answer, the block is freed.
extern Interposable<int(void*)> on_free;

} // namespace interpose

#endif
