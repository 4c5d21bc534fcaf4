#include "interpose.h"

#include "memory_shortage.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

namespace
{

TEST(Interpose, CallIsRealWithoutBehaviour)
{
    EXPECT_EQ(access("/", R_OK), 0);
    EXPECT_GT(time(nullptr), 1'700'000'000);
}

TEST(Interpose, BehaviourOfFreeOnlyLooksOn)
{
    std::vector<uintptr_t> freed;
    void* const block = std::malloc(1);
    const auto address = reinterpret_cast<uintptr_t>(block);
    {
        auto free_hook = interpose::on_free([&](void* freed_block) {
            freed.push_back(reinterpret_cast<uintptr_t>(freed_block));
            return std::optional<int>(-1);
        });
        std::free(block);
    }
    EXPECT_EQ(freed, std::vector<uintptr_t>{address});
}

TEST(Interpose, BehaviourEndsWithItsHook)
{
    {
        auto uname_hook = interpose::on_uname.fails(EFAULT);
        utsname names;
        EXPECT_EQ(uname(&names), -1);
        EXPECT_EQ(errno, EFAULT);
        EXPECT_EQ(uname_hook.calls(), 1);
    }
    utsname names;
    EXPECT_EQ(uname(&names), 0);
}

TEST(Interpose, FailsOnlyTheCallsMeant)
{
    auto hook = interpose::on_access.fails(ETIME, 2, 2);
    std::vector<int> results;
    for (int i = 0; i < 4; ++i)
        results.push_back(access("/", R_OK));
    EXPECT_EQ(results, (std::vector<int>{0, -1, -1, 0}));
    EXPECT_EQ(hook.calls(), 4);
}

TEST(Interpose, ErrnoStaysWhereTheRealCallIsAskedFor)
{
    auto hook = interpose::on_access([](const char*, int) -> std::optional<int> {
        errno = EIO;
        return std::nullopt;
    });
    errno = EXDEV;
    EXPECT_EQ(access("/", R_OK), 0);
    EXPECT_EQ(errno, EXDEV);
}

TEST(Interpose, BehaviourMakesRealCalls)
{
    auto hook = interpose::on_access(
        [](const char* path, int) -> std::optional<int> { return access(path, F_OK) + 40; });
    EXPECT_EQ(access("/", R_OK), 40);
    EXPECT_EQ(hook.calls(), 1);
}

TEST(Interpose, AllocationFailsOnTheInstallingThreadOnly)
{
    void* volatile here;
    void* volatile there;
    std::atomic<bool> armed{false};
    std::thread other([&] {
        while (!armed)
            std::this_thread::yield();
        there = calloc(1, 16);
    });
    {
        auto hook = interpose::on_allocation.fails(ENOMEM);
        armed = true;
        here = calloc(1, 16);
        other.join();
    }
    EXPECT_EQ(here, nullptr);
    EXPECT_NE(there, nullptr);
    free(there);
}

TEST(Interpose, TheNthAllocationFails)
{
    const std::string text(100, 'x'); // too long to be copied inline
    char* copies[3];
    {
        auto hook = interpose::on_allocation.fails_once(ENOMEM, 2);
        for (char*& copy : copies)
            copy = strdup(text.c_str());
    }
    EXPECT_STREQ(copies[0], text.c_str());
    EXPECT_EQ(copies[1], nullptr);
    EXPECT_STREQ(copies[2], text.c_str());
    free(copies[0]);
    free(copies[2]);
}

#ifndef IXFS_SANITIZER_DEFINES_NEW
TEST(Interpose, RefusedNewThrows)
{
    auto hook = interpose::on_allocation.fails(ENOMEM);
    EXPECT_THROW(::operator delete(::operator new(1)), std::bad_alloc);
}

TEST(Interpose, TellsWhichAllocationWouldThrow)
{
    std::vector<bool> told;
    told.reserve(3);
    {
        const auto hook = interpose::on_allocation([&](size_t) {
            told.push_back(interpose::allocation_throws());
            return std::optional<void*>();
        });
        free(malloc(1));
        ::operator delete(::operator new(1));
        ::operator delete(::operator new(1, std::nothrow));
    }
    EXPECT_EQ(told, (std::vector<bool>{false, true, false}));
}

TEST(Interpose, RefusedNothrowNewIsNull)
{
    auto hook = interpose::on_allocation.fails(ENOMEM);
    EXPECT_EQ(::operator new(1, std::nothrow), nullptr);
}
#endif

TEST(Interpose, ThreadCreationTellsByItsResult)
{
    auto hook = interpose::on_pthread_create.fails(EAGAIN);
    pthread_t thread;
    const auto nothing = [](void*) -> void* {
        return nullptr;
    };
    EXPECT_EQ(pthread_create(&thread, nullptr, nothing, nullptr), EAGAIN);
}

TEST(Interpose, HookWaitsForABehaviourUnderWay)
{
    std::atomic<bool> inside{false};
    std::atomic<bool> done{false};
    std::thread other;
    {
        auto hook = interpose::on_access([&](const char*, int) -> std::optional<int> {
            inside = true;
            for (int i = 0; i < 1000; ++i)
                std::this_thread::yield();
            done = true;
            return 0;
        });
        other = std::thread([] { EXPECT_EQ(access("/nowhere", R_OK), 0); });
        while (!inside)
            std::this_thread::yield();
    }
    EXPECT_TRUE(done);
    other.join();
}

// ---- Memory -------------------------------------------------------------------------------------

TEST(Interpose, EveryAllocationIsAskedForOnce)
{
    const std::string text(100, 'x');
    void* blocks[7] = {};
    int calls = 0;
    {
        const auto hook = interpose::on_allocation.watch();
        blocks[0] = malloc(1);
        blocks[1] = calloc(1, 1);
        blocks[2] = realloc(nullptr, 1);
        blocks[3] = aligned_alloc(16, 16);
        blocks[4] = strdup(text.c_str());
        blocks[5] = strndup(text.c_str(), 50);
        EXPECT_EQ(posix_memalign(&blocks[6], 16, 16), 0);
        calls = hook.calls();
    }
    EXPECT_EQ(calls, 7);
    for (void* const block : blocks)
        free(block);
}

#ifndef IXFS_SANITIZER_DEFINES_NEW
TEST(Interpose, EveryNewIsAskedForOnce)
{
    void* blocks[4] = {};
    int calls = 0;
    {
        const auto hook = interpose::on_allocation.watch();
        blocks[0] = ::operator new(1);
        blocks[1] = ::operator new(1, std::nothrow);
        blocks[2] = ::operator new[](1);
        blocks[3] = ::operator new[](1, std::nothrow);
        calls = hook.calls();
    }
    EXPECT_EQ(calls, 4);
    ::operator delete(blocks[0]);
    ::operator delete(blocks[1]);
    ::operator delete[](blocks[2]);
    ::operator delete[](blocks[3]);
}
#endif

TEST(Interpose, ShortageMeetsObjectsOfItsSizeAlone)
{
    const std::string text(4710, 'x');
    const MemoryShortage shortage(4711);
    void* const other = malloc(4712);
    EXPECT_NE(other, nullptr);
    EXPECT_EQ(malloc(4711), nullptr);
    EXPECT_EQ(calloc(1, 4711), nullptr);
    EXPECT_EQ(strdup(text.c_str()), nullptr);
    EXPECT_EQ(shortage.hits(), 3);
    free(other);
}

TEST(Interpose, CallsOfATestsOwnMeansAreReal)
{
    const auto hook = interpose::on_access.fails(EIO);
    {
        const interpose::RealCalls real;
        EXPECT_EQ(access("/", R_OK), 0);
    }
    EXPECT_EQ(access("/", R_OK), -1);
    EXPECT_EQ(hook.calls(), 1);
}

} // namespace
