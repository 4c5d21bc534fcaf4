// How the program's own definitions of system calls are written. For the interpose_*.cpp files.
#ifndef IXFS_TESTS_INTERPOSE_CALL_H
#define IXFS_TESTS_INTERPOSE_CALL_H

#include "interpose.h"

#include <fcntl.h>

namespace interpose
{

// Returns the call as the program would have it without these files: a sanitizer's that is linked
// into the program, or else the next in the order of libraries.
void* next_symbol(const char* symbol, const char* version);

template <typename Function>
Function* find_real(std::atomic<Function*>& found, Function* sanitizers, const char* symbol,
                    const char* version)
{
    Function* real = found.load(std::memory_order_relaxed);
    if (real == nullptr) {
        real = sanitizers != nullptr ? sanitizers
                                     : reinterpret_cast<Function*>(next_symbol(symbol, version));
        found.store(real, std::memory_order_relaxed);
    }
    return real;
}

// Ends the program with a line on the standard error stream.
[[noreturn]] void give_up(const char* why);

// A path as tests know it: one that is relative to an open folder, or goes by the number of a
// descriptor, is told in full.
class FullPath
{
public:
    explicit FullPath(const char* path) : FullPath(AT_FDCWD, path) {}
    FullPath(int folder, const char* path);
    operator const char*() const { return path_; } // NOLINT: that is what it is

private:
    const char* path_;
    char buffer_[2 * PATH_MAX];
};

} // namespace interpose

// Begins the program's own definition of the call, whose body follows; there real_<name>() is the
// real one. In C++ the definition has a name of its own, since the system's declaration of the call
// carries other attributes.
#define INTERPOSED_SYMBOL(name, symbol, version, result, parameters)                               \
    extern "C" result interposed_##name parameters __asm__(symbol);                                \
    extern "C" result __interceptor_##name parameters __attribute__((weak));                       \
    static auto* real_##name()                                                                     \
    {                                                                                              \
        static std::atomic<result(*) parameters> found{nullptr};                                   \
        return interpose::find_real(found, &__interceptor_##name, symbol, version);                \
    }                                                                                              \
    extern "C" result interposed_##name parameters

#define INTERPOSED(name, result, parameters)                                                       \
    INTERPOSED_SYMBOL(name, #name, nullptr, result, parameters)

// A whole definition: asks `hook` with the arguments `asked`, and makes the real call with
// `arguments`.
#define ANSWERED_BY(hook, asked, name, result, parameters, arguments)                              \
    INTERPOSED(name, result, parameters)                                                           \
    {                                                                                              \
        if (hook.is_installed()) {                                                                 \
            if (const std::optional<result> answer = hook.ask asked)                               \
                return *answer;                                                                    \
        }                                                                                          \
        return real_##name() arguments;                                                            \
    }

#endif
