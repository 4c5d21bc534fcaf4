// Time that passes without being waited for.
#ifndef IXFS_TESTS_FAKE_TIME_H
#define IXFS_TESTS_FAKE_TIME_H

#include "interpose.h"

#include <vector>

// Stands in for all clocks and sleeps of the thread that makes it: the time, which the clocks agree
// on unless somebody sets the wall clock, stands still but for sleeps, which end at once and let it
// go on by what was asked for. The program ends at once where that thread would really wait until
// some time, or another one sleeps.
// Holds on_time and on_sleep.
class FakeClock
{
public:
    // A program that has threads of its own, as a fuzzer has, lets them sleep.
    enum class OtherThreads { must_not_sleep, may_sleep };

    explicit FakeClock(time_t start = 1'000'000, OtherThreads others = OtherThreads::must_not_sleep)
        : now_{start, 0}, others_(others)
    {
    }
    explicit FakeClock(OtherThreads others) : FakeClock(1'000'000, others) {}

    // The sleeps asked for, in order, in seconds.
    const std::vector<double>& sleeps() const { return sleeps_; }

    // Lets time pass otherwise than by a sleep.
    void advance(time_t seconds) { now_.tv_sec += seconds; }

    // Sets the clock that people read forward, or back where the number is negative.
    void set_wall_clock_by(time_t seconds) { wall_clock_is_ahead_ += seconds; }

private:
    static bool is_wall_clock(clockid_t clock)
    {
        return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE || clock == CLOCK_TAI;
    }

    std::optional<int> answer(const timespec& wanted)
    {
        if (pthread_equal(thread_, pthread_self()) != 0) {
            sleep(wanted);
            return 0;
        }
        if (others_ == OtherThreads::may_sleep)
            return std::nullopt;
        std::fputs("FakeClock: a sleep on another thread than the clock's\n", stderr);
        std::abort();
    }

    void sleep(const timespec& wanted)
    {
        constexpr long second = 1'000'000'000; // nanoseconds
        sleeps_.push_back(static_cast<double>(wanted.tv_sec) +
                          static_cast<double>(wanted.tv_nsec) / second);
        now_.tv_sec += wanted.tv_sec + (now_.tv_nsec + wanted.tv_nsec) / second;
        now_.tv_nsec = (now_.tv_nsec + wanted.tv_nsec) % second;
    }

    timespec now_;
    time_t wall_clock_is_ahead_ = 0; // seconds
    OtherThreads others_;
    std::vector<double> sleeps_;
    pthread_t thread_ = pthread_self();
    decltype(interpose::on_time)::Hook time_ =
        interpose::on_time([this](clockid_t clock, timespec* now) -> std::optional<int> {
            *now = now_;
            if (is_wall_clock(clock))
                now->tv_sec += wall_clock_is_ahead_;
            return 0;
        });
    decltype(interpose::on_sleep)::Hook sleep_ =
        interpose::on_sleep([this](const timespec* wanted, timespec*) { return answer(*wanted); });
};

// Lets the first `count` timed waits for an event, on whatever thread, end at once with their time
// over. Those after them are real, and so last until the event is signalled. Holds
// on_pthread_cond_timedwait.
class ExpiredEventWaits
{
public:
    explicit ExpiredEventWaits(int count)
        : hook_(interpose::on_pthread_cond_timedwait.fails(ETIMEDOUT, 1, count))
    {
    }

    // Waits begun so far.
    int waits() const { return hook_.calls(); }

private:
    decltype(interpose::on_pthread_cond_timedwait)::Hook hook_;
};

#endif
