// Clocks, sleeps, and waits that end by a clock.
//
// Where a test has set the time, it stands still while a thread sleeps. So a wait that nothing
// stands in for would really last, and perhaps for good; the program ends instead.
#include "interpose_call.h"

#include <algorithm>
#include <csignal>

#include <poll.h>
#include <semaphore.h>
#include <sys/select.h>
#include <sys/time.h>
#include <threads.h>
#include <unistd.h>

namespace interpose
{

Interposable<int(clockid_t, timespec*)> on_time{"time", Reach::this_thread, Failure::by_errno};
Interposable<int(const timespec*, timespec*)> on_sleep{"sleep", Reach::every_thread,
                                                       Failure::by_errno};
Interposable<int(pthread_cond_t*, pthread_mutex_t*, const timespec*)> on_pthread_cond_timedwait{
    "pthread_cond_timedwait", Reach::every_thread, Failure::by_result};

namespace
{

constexpr long nanoseconds = 1'000'000'000; // of a second

timespec sum(const timespec& one, const timespec& other)
{
    const long rest = one.tv_nsec + other.tv_nsec;
    return {one.tv_sec + other.tv_sec + rest / nanoseconds, rest % nanoseconds};
}

// 0 where there is nothing left.
timespec time_from(const timespec& start, const timespec& end)
{
    timespec length{end.tv_sec - start.tv_sec, end.tv_nsec - start.tv_nsec};
    if (length.tv_nsec < 0) {
        --length.tv_sec;
        length.tv_nsec += nanoseconds;
    }
    return length.tv_sec < 0 ? timespec{0, 0} : length;
}

bool is_zero(const timespec& length)
{
    return length.tv_sec == 0 && length.tv_nsec == 0;
}

bool is_processor_time(clockid_t clock)
{
    return clock == CLOCK_PROCESS_CPUTIME_ID || clock == CLOCK_THREAD_CPUTIME_ID || clock < 0;
}

} // namespace

// ---- Clocks -------------------------------------------------------------------------------------

INTERPOSED(clock_gettime, int, (clockid_t clock, timespec* now))
{
    if (!is_processor_time(clock)) {
        if (const std::optional<int> answer = on_time.ask(clock, now))
            return *answer;
    }
    return real_clock_gettime()(clock, now);
}

INTERPOSED(time, time_t, (time_t * now))
{
    timespec told{};
    const std::optional<int> answer = on_time.ask(CLOCK_REALTIME, &told);
    if (!answer)
        return real_time()(now);
    if (*answer != 0)
        return -1;
    if (now != nullptr)
        *now = told.tv_sec;
    return told.tv_sec;
}

INTERPOSED(gettimeofday, int, (timeval * now, void* zone))
{
    timespec told{};
    const std::optional<int> answer = on_time.ask(CLOCK_REALTIME, &told);
    if (!answer)
        return real_gettimeofday()(now, zone);
    if (*answer == 0)
        *now = {told.tv_sec, told.tv_nsec / 1000};
    return *answer;
}

INTERPOSED(timespec_get, int, (timespec * now, int base))
{
    if (const std::optional<int> answer = on_time.ask(CLOCK_REALTIME, now))
        return *answer == 0 ? base : 0;
    return real_timespec_get()(now, base);
}

// ---- Sleeps -------------------------------------------------------------------------------------

ANSWERED_BY(on_sleep, (wanted, left), nanosleep, int, (const timespec* wanted, timespec* left),
            (wanted, left))
ANSWERED_BY(on_sleep, (wanted, left), thrd_sleep, int, (const timespec* wanted, timespec* left),
            (wanted, left))

INTERPOSED(clock_nanosleep, int,
           (clockid_t clock, int flags, const timespec* wanted, timespec* left))
{
    timespec length = *wanted;
    if ((flags & TIMER_ABSTIME) != 0 && on_sleep.is_asked_here()) {
        timespec now{};
        interposed_clock_gettime(clock, &now);
        length = time_from(now, *wanted);
    }
    const int callers_errno = errno;
    const std::optional<int> answer = on_sleep.ask(&length, left);
    if (!answer)
        return real_clock_nanosleep()(clock, flags, wanted, left);
    const int error = errno;
    errno = callers_errno;
    return *answer == 0 ? 0 : error;
}

INTERPOSED(usleep, int, (useconds_t microseconds))
{
    const timespec wanted{microseconds / 1'000'000, microseconds % 1'000'000 * 1000L};
    if (const std::optional<int> answer = on_sleep.ask(&wanted, nullptr))
        return *answer;
    return real_usleep()(microseconds);
}

INTERPOSED(sleep, unsigned int, (unsigned int seconds))
{
    const timespec wanted{seconds, 0};
    timespec left = wanted;
    if (const std::optional<int> answer = on_sleep.ask(&wanted, &left))
        return *answer == 0 ? 0 : static_cast<unsigned int>(left.tv_sec);
    return real_sleep()(seconds);
}

// ---- Waits for descriptors, signals and semaphores ----------------------------------------------

namespace
{

// For a wait of that length at most, null being without an end. One for nothing is a sleep.
std::optional<int> ask_wait(const char* call, const timespec* limit, bool for_nothing)
{
    if (limit == nullptr || is_zero(*limit))
        return std::nullopt;
    std::optional<int> answer;
    if (for_nothing)
        answer = on_sleep.ask(limit, nullptr);
    if (!answer && on_time.is_asked_here())
        give_up(call);
    return answer;
}

#define REAL_WAIT(name) "a real wait while the time is set by a test: " #name

const timespec* milliseconds(int count, timespec& length)
{
    length = {count / 1000, count % 1000 * 1'000'000L};
    return count >= 0 ? &length : nullptr;
}

const timespec* length_of(const timeval* limit, timespec& length)
{
    if (limit == nullptr)
        return nullptr;
    length = {limit->tv_sec, limit->tv_usec * 1000};
    return &length;
}

} // namespace

#define DEFINE_WAIT(name, parameters, limit, for_nothing, arguments)                               \
    INTERPOSED(name, int, parameters)                                                              \
    {                                                                                              \
        [[maybe_unused]] timespec length;                                                          \
        if (const std::optional<int> answer = ask_wait(REAL_WAIT(name), limit, for_nothing))       \
            return *answer;                                                                        \
        return real_##name() arguments;                                                            \
    }

DEFINE_WAIT(poll, (pollfd * waited, nfds_t count, int limit), milliseconds(limit, length),
            count == 0, (waited, count, limit))
DEFINE_WAIT(ppoll, (pollfd * waited, nfds_t count, const timespec* limit, const sigset_t* mask),
            limit, count == 0, (waited, count, limit, mask))
DEFINE_WAIT(select, (int count, fd_set* in, fd_set* out, fd_set* other, timeval* limit),
            length_of(limit, length), count == 0, (count, in, out, other, limit))
DEFINE_WAIT(pselect,
            (int count, fd_set* in, fd_set* out, fd_set* other, const timespec* limit,
             const sigset_t* mask),
            limit, count == 0, (count, in, out, other, limit, mask))
DEFINE_WAIT(sigtimedwait, (const sigset_t* set, siginfo_t* info, const timespec* limit), limit,
            false, (set, info, limit))
DEFINE_WAIT(sem_timedwait, (sem_t * semaphore, const timespec* until), until, false,
            (semaphore, until))

// ---- Waits for conditions -----------------------------------------------------------------------

namespace
{

timespec real_now(clockid_t clock)
{
    timespec now{};
    real_clock_gettime()(clock, &now);
    return now;
}

// The end of a wait as the real-time clock will show it.
timespec in_real_time(clockid_t clock, const timespec& until)
{
    if (clock == CLOCK_REALTIME)
        return until;
    return sum(real_now(CLOCK_REALTIME), time_from(real_now(clock), until));
}

// A wait whose end is by a time that a test has set. What it waits for may still come.
template <typename Wait>
int wait_in_set_time(clockid_t clock, const timespec& until, Wait real_wait)
{
    timespec now{};
    interposed_clock_gettime(clock, &now);
    const timespec length = time_from(now, until);
    if (is_zero(length))
        return real_wait(length);
    const timespec limit = length.tv_sec > 0 ? timespec{1, 0} : length;
    const int result = real_wait(sum(real_now(clock), limit));
    if (result == ETIMEDOUT)
        give_up(REAL_WAIT(for a condition that does not come));
    return result;
}

template <typename Wait>
int wait_as_answered(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                     const timespec& until, Wait real_wait)
{
    if (on_pthread_cond_timedwait.is_asked_here()) {
        const timespec end = in_real_time(clock, until);
        if (const std::optional<int> answer = on_pthread_cond_timedwait.ask(condition, mutex, &end))
            return *answer;
    }
    if (on_time.is_asked_here())
        return wait_in_set_time(clock, until, real_wait);
    return real_wait(until);
}

} // namespace

// The C library keeps an older version of the condition variable beside today's.
INTERPOSED_SYMBOL(pthread_cond_timedwait, "pthread_cond_timedwait", "GLIBC_2.3.2", int,
                  (pthread_cond_t * condition, pthread_mutex_t* mutex, const timespec* until))
{
    return wait_as_answered(condition, mutex, CLOCK_REALTIME, *until, [&](const timespec& end) {
        return real_pthread_cond_timedwait()(condition, mutex, &end);
    });
}

INTERPOSED(pthread_cond_clockwait, int,
           (pthread_cond_t * condition, pthread_mutex_t* mutex, clockid_t clock,
            const timespec* until))
{
    return wait_as_answered(condition, mutex, clock, *until, [&](const timespec& end) {
        return real_pthread_cond_clockwait()(condition, mutex, clock, &end);
    });
}

} // namespace interpose
