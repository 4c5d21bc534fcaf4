// Memory. What allocates by a call of another kind counts once.
#include "interpose_call.h"

#include <cstring>

namespace interpose
{

Interposable<void*(size_t)> on_allocation{"allocation", Reach::this_thread, Failure::by_errno};

namespace
{

thread_local bool throwing_new_asks;

} // namespace

bool allocation_throws()
{
    return throwing_new_asks;
}

ANSWERED_BY(on_allocation, (size), malloc, void*, (size_t size), (size))
ANSWERED_BY(on_allocation, (count * size), calloc, void*, (size_t count, size_t size),
            (count, size))
ANSWERED_BY(on_allocation, (size), realloc, void*, (void* block, size_t size), (block, size))
ANSWERED_BY(on_allocation, (size), aligned_alloc, void*, (size_t alignment, size_t size),
            (alignment, size))

INTERPOSED(posix_memalign, int, (void** block, size_t alignment, size_t size))
{
    if (const std::optional<void*> answer = on_allocation.ask(size)) {
        *block = *answer;
        return *answer != nullptr ? 0 : ENOMEM;
    }
    return real_posix_memalign()(block, alignment, size);
}

INTERPOSED(strdup, char*, (const char* text))
{
    if (const std::optional<void*> answer = on_allocation.ask(std::strlen(text) + 1))
        return static_cast<char*>(*answer);
    const RealCalls once;
    return real_strdup()(text);
}

INTERPOSED(strndup, char*, (const char* text, size_t size))
{
    if (const std::optional<void*> answer = on_allocation.ask(strnlen(text, size) + 1))
        return static_cast<char*>(*answer);
    const RealCalls once;
    return real_strndup()(text, size);
}

Interposable<int(void*)> on_free{"free", Reach::this_thread, Failure::by_errno};

INTERPOSED(free, void, (void* block))
{
    on_free.ask(block);
    real_free()(block);
}

// clang puts a sanitizer's operator new into the program itself, where there can be only one.
#ifndef IXFS_SANITIZER_DEFINES_NEW
#define DEFINE_NEW(name, symbol)                                                                   \
    INTERPOSED_SYMBOL(name, symbol, nullptr, void*, (size_t size))                                 \
    {                                                                                              \
        throwing_new_asks = true;                                                                  \
        const std::optional<void*> answer = on_allocation.ask(size);                               \
        throwing_new_asks = false;                                                                 \
        if (answer) {                                                                              \
            if (*answer == nullptr)                                                                \
                throw std::bad_alloc();                                                            \
            return *answer;                                                                        \
        }                                                                                          \
        const RealCalls once;                                                                      \
        return real_##name()(size);                                                                \
    }

#define DEFINE_NOTHROW_NEW(name, symbol)                                                           \
    INTERPOSED_SYMBOL(name, symbol, nullptr, void*, (size_t size, const std::nothrow_t& tag))      \
    {                                                                                              \
        if (const std::optional<void*> answer = on_allocation.ask(size))                           \
            return *answer;                                                                        \
        const RealCalls once;                                                                      \
        return real_##name()(size, tag);                                                           \
    }

DEFINE_NEW(new, "_Znwm")
DEFINE_NEW(new_array, "_Znam")
DEFINE_NOTHROW_NEW(nothrow_new, "_ZnwmRKSt9nothrow_t")
DEFINE_NOTHROW_NEW(nothrow_new_array, "_ZnamRKSt9nothrow_t")
#endif

} // namespace interpose
