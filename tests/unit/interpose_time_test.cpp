// Time under a test's control.
#include "fake_time.h"

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/select.h>
#include <sys/time.h>
#include <threads.h>
#include <unistd.h>

namespace
{

TEST(InterposeTime, FakeClockMovesBySleepsAlone)
{
    FakeClock clock(100);
    const timespec ten_and_a_half{10, 500'000'000};
    EXPECT_EQ(nanosleep(&ten_and_a_half, nullptr), 0);
    EXPECT_EQ(nanosleep(&ten_and_a_half, nullptr), 0);
    EXPECT_EQ(time(nullptr), 121);
    EXPECT_EQ(clock.sleeps(), (std::vector<double>{10.5, 10.5}));
}

TEST(InterposeTime, FakeClockIsTheSameByAllClocks)
{
    FakeClock clock(100);
    timespec now{};
    EXPECT_EQ(clock_gettime(CLOCK_REALTIME, &now), 0);
    EXPECT_EQ(now.tv_sec, 100);
    EXPECT_EQ(clock_gettime(CLOCK_MONOTONIC, &now), 0);
    EXPECT_EQ(now.tv_sec, 100);
    EXPECT_EQ(timespec_get(&now, TIME_UTC), TIME_UTC);
    EXPECT_EQ(now.tv_sec, 100);
    timeval day{};
    EXPECT_EQ(gettimeofday(&day, nullptr), 0);
    EXPECT_EQ(day.tv_sec, 100);
    time_t told = 0;
    EXPECT_EQ(time(&told), 100);
    EXPECT_EQ(told, 100);
    EXPECT_EQ(std::chrono::system_clock::now().time_since_epoch(), std::chrono::seconds(100));
    EXPECT_EQ(std::chrono::steady_clock::now().time_since_epoch(), std::chrono::seconds(100));
}

TEST(InterposeTime, FakeClockMovesByAllSleeps)
{
    FakeClock clock(100);
    const timespec second{1, 0};
    const timespec until{103, 0};
    timeval limit{1, 0};
    EXPECT_EQ(nanosleep(&second, nullptr), 0);
    EXPECT_EQ(clock_nanosleep(CLOCK_MONOTONIC, 0, &second, nullptr), 0);
    EXPECT_EQ(clock_nanosleep(CLOCK_REALTIME, TIMER_ABSTIME, &until, nullptr), 0);
    EXPECT_EQ(usleep(1'000'000), 0);
    EXPECT_EQ(sleep(1), 0U);
    EXPECT_EQ(thrd_sleep(&second, nullptr), 0);
    std::this_thread::sleep_for(std::chrono::seconds(1));
    std::this_thread::sleep_until(std::chrono::steady_clock::time_point(std::chrono::seconds(108)));
    EXPECT_EQ(poll(nullptr, 0, 1000), 0);
    EXPECT_EQ(select(0, nullptr, nullptr, nullptr, &limit), 0);
    EXPECT_EQ(time(nullptr), 110);
    EXPECT_EQ(clock.sleeps(), std::vector<double>(10, 1));
}

TEST(InterposeTime, ClockIsReadByOtherThreadsAsItIs)
{
    const FakeClock clock(100);
    time_t there = 0;
    std::thread([&] { there = time(nullptr); }).join();
    EXPECT_GT(there, 1'700'000'000);
}

TEST(InterposeTime, WaitForAConditionThatComesLastsUnderAFakeClock)
{
    const FakeClock clock;
    std::mutex mutex;
    std::condition_variable changed;
    bool come = false;
    std::unique_lock<std::mutex> lock(mutex);
    std::thread other([&] {
        const std::lock_guard<std::mutex> others(mutex);
        come = true;
        changed.notify_all();
    });
    EXPECT_TRUE(changed.wait_for(lock, std::chrono::hours(1), [&] { return come; }));
    EXPECT_FALSE(changed.wait_for(lock, std::chrono::seconds(0), [] { return false; }));
    lock.unlock();
    other.join();
}

void wait_for_a_descriptor()
{
    const FakeClock clock;
    pollfd nothing{-1, POLLIN, 0};
    poll(&nothing, 1, 3'600'000);
}

void wait_for_a_condition()
{
    const FakeClock clock;
    std::mutex mutex;
    std::condition_variable never;
    std::unique_lock<std::mutex> lock(mutex);
    never.wait_for(lock, std::chrono::hours(1));
}

void sleep_elsewhere()
{
    const FakeClock clock;
    std::thread([] { sleep(3600); }).join();
}

TEST(InterposeTime, RealWaitsUnderAFakeClockEndTheProgram)
{
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const std::string message = "a real wait while the time is set by a test";
    EXPECT_DEATH(wait_for_a_descriptor(), message);
    EXPECT_DEATH(wait_for_a_condition(), message);
    EXPECT_DEATH(sleep_elsewhere(), "a sleep on another thread than the clock's");
}

TEST(InterposeTime, ExpiredWaitsEndAtOnceAndThenWaitsAreReal)
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

TEST(InterposeTime, WaitsByEitherClockAreTheSame)
{
    double seconds[2] = {};
    int waits = 0;
    const auto hook = interpose::on_pthread_cond_timedwait(
        [&](pthread_cond_t*, pthread_mutex_t*, const timespec* until) -> std::optional<int> {
            seconds[waits++] = static_cast<double>(until->tv_sec - time(nullptr));
            return ETIMEDOUT;
        });
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    timespec until{};
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_sec += 300;
    EXPECT_EQ(pthread_cond_timedwait(&condition, &mutex, &until), ETIMEDOUT);
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += 300;
    EXPECT_EQ(pthread_cond_clockwait(&condition, &mutex, CLOCK_MONOTONIC, &until), ETIMEDOUT);
    ASSERT_EQ(waits, 2);
    for (const double length : seconds) {
        EXPECT_LE(length, 301);
        EXPECT_GT(length, 270);
    }
}

} // namespace
