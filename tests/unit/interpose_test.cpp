#include "interpose.h"

#include "fake_time.h"

#include <gtest/gtest.h>

#include <atomic>
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
        auto hook = interpose::on_calloc.fails(ENOMEM);
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
        auto hook = interpose::on_strdup.fails_once(ENOMEM, 2);
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
    auto hook = interpose::on_new.fails(ENOMEM);
    EXPECT_THROW(::operator delete(::operator new(1)), std::bad_alloc);
}

TEST(Interpose, RefusedNothrowNewIsNull)
{
    auto hook = interpose::on_new_nothrow.fails(ENOMEM);
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

TEST(Interpose, FakeClockMovesBySleepsAlone)
{
    FakeClock clock(100);
    const timespec ten_and_a_half{10, 500'000'000};
    EXPECT_EQ(nanosleep(&ten_and_a_half, nullptr), 0);
    EXPECT_EQ(nanosleep(&ten_and_a_half, nullptr), 0);
    EXPECT_EQ(time(nullptr), 121);
    EXPECT_EQ(clock.sleeps(), (std::vector<double>{10.5, 10.5}));
}

TEST(Interpose, ExpiredWaitsEndAtOnceAndThenWaitsAreReal)
{
    ExpiredEventWaits expired(1);
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    const timespec far{time(nullptr) + 3600, 0};
    const timespec past{1, 0};
    pthread_mutex_lock(&mutex);
    EXPECT_EQ(pthread_cond_timedwait(&condition, &mutex, &far), ETIMEDOUT);
    EXPECT_EQ(pthread_cond_timedwait(&condition, &mutex, &past), ETIMEDOUT);
    pthread_mutex_unlock(&mutex);
    EXPECT_EQ(expired.waits(), 2);
}

} // namespace
