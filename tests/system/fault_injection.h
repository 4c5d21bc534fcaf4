// Faults: the ways in which the library's calls to the C library can fail, one call at a time.
//
//     Trigger trigger(3, Trigger::Mode::once);
//     FaultClock clock;
//     const ArmedFault armed = fails(interpose::on_access, ETIME).arm(trigger, clock);
//     ... // the third access() fails
//     trigger.reached();
#ifndef IXFS_TESTS_FAULT_INJECTION_H
#define IXFS_TESTS_FAULT_INJECTION_H

#include "interpose.h"

#include <atomic>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#include <fcntl.h>

// Counts the calls that a fault could hit, and tells which it does. Any thread.
class Trigger
{
public:
    enum class Mode { once, for_good };

    // The call with that number fails, the first being 1; `for_good`, all later ones too. Each that
    // is to fail is announced.
    Trigger(
        int number, Mode mode, std::function<void()> announce = [] {})
        : number_(number), mode_(mode), announce_(std::move(announce))
    {
    }

    bool hits()
    {
        const int call = ++calls_;
        const bool hit = call == number_ || (mode_ == Mode::for_good && call > number_);
        if (hit)
            announce_();
        return hit;
    }

    int calls() const { return calls_; }
    bool reached() const { return calls_ >= number_; }

private:
    int number_;
    Mode mode_;
    std::function<void()> announce_;
    std::atomic<int> calls_{0};
};

// Stands in for clocks and sleeps, so that no run waits: the time stands still but for sleeps,
// which end at once. Unlike FakeClock it allocates nothing, since a fault would hit that allocation
// instead of the library's. Holds on_time and on_sleep. For one thread.
class FaultClock
{
public:
    // Makes reading the time fail, and a sleep end early for a signal, when the trigger hits.
    void fail_time(Trigger& trigger) { time_trigger_ = &trigger; }
    void fail_sleep(Trigger& trigger) { sleep_trigger_ = &trigger; }

private:
    static bool hits(Trigger* trigger) { return trigger != nullptr && trigger->hits(); }

    // Who does not look at the result, as C++ clocks do not, takes a time that runs away.
    int fail(timespec* now)
    {
        constexpr time_t longest_wait = 60; // seconds
        astray_ += longest_wait;
        *now = {now_ + astray_, 0};
        return interpose::on_time.failed(EOVERFLOW);
    }

    time_t now_ = 1'000'000;
    time_t astray_ = 0;
    Trigger* time_trigger_ = nullptr;
    Trigger* sleep_trigger_ = nullptr;
    decltype(interpose::on_time)::Hook time_ =
        interpose::on_time([this](clockid_t, timespec* now) -> std::optional<int> {
            if (hits(time_trigger_))
                return fail(now);
            *now = {now_, 0};
            return 0;
        });
    decltype(interpose::on_sleep)::Hook sleep_ =
        interpose::on_sleep([this](const timespec* wanted, timespec* left) -> std::optional<int> {
            if (hits(sleep_trigger_)) {
                if (left != nullptr)
                    *left = *wanted;
                return interpose::on_sleep.failed(EINTR);
            }
            now_ += wanted->tv_sec;
            return 0;
        });
};

// Keeps a fault in place.
using ArmedFault = std::shared_ptr<void>;

struct Fault {
    std::string call;  // such as "access"
    std::string error; // what it fails with, for messages
    std::function<ArmedFault(Trigger&, FaultClock&)> arm;

    // How it comes: to a single call, to one and all that follow, and to calls of which numbers.
    bool once = true;
    bool lasts = true;
    int first = 1;
    int last = INT_MAX;
};

inline Fault only_once(Fault fault)
{
    fault.lasts = false;
    return fault;
}

inline Fault for_good(Fault fault)
{
    fault.once = false;
    return fault;
}

// The fault as one that begins with the first call, or the first few, or with any other.
inline Fault at_first(Fault fault, int calls = 1)
{
    fault.last = calls;
    return fault;
}

inline Fault later(Fault fault, int calls_before = 1)
{
    fault.first = calls_before + 1;
    return fault;
}

std::string name_of(int error); // such as "EIO"

// A fault that answers the calls that meet `concerns`, when the trigger hits, as `answer` does.
template <typename Result, typename... Args, typename Concerns, typename Answer>
Fault answers(interpose::Interposable<Result(Args...)>& call, const std::string& error,
              Concerns concerns, Answer answer)
{
    using Hook = typename interpose::Interposable<Result(Args...)>::Hook;
    return {call.name(), error, [&call, concerns, answer](Trigger& trigger, FaultClock&) {
                auto hook = std::make_shared<std::optional<Hook>>();
                // From here on nothing may be allocated: allocation itself may be what fails.
                hook->emplace(call([&trigger, concerns, answer](Args... args) {
                    return concerns(args...) && trigger.hits() ? answer(args...)
                                                               : std::optional<Result>();
                }));
                return hook;
            }};
}

inline constexpr auto any_call = [](auto...) {
    return true;
};

// Whether the path that a call is about ends in `name`.
inline auto is_about(const std::string& name)
{
    return [name](auto... args) {
        const char* const path = std::get<const char*>(std::make_tuple(args...));
        const char* const slash = std::strrchr(path, '/');
        return name == (slash != nullptr ? slash + 1 : path);
    };
}

// Whether a file is opened to be written.
inline constexpr auto is_to_write = [](const char*, int flags) {
    return (flags & O_ACCMODE) != O_RDONLY;
};

template <typename Condition>
auto unless(Condition condition)
{
    return [condition](auto... args) {
        return !condition(args...);
    };
}

template <typename Result, typename... Args, typename Concerns>
Fault fails_where(interpose::Interposable<Result(Args...)>& call, int error, Concerns concerns)
{
    return answers(call, name_of(error), concerns,
                   [&call, error](Args...) { return std::optional<Result>(call.failed(error)); });
}

template <typename Result, typename... Args>
Fault fails(interpose::Interposable<Result(Args...)>& call, int error)
{
    return fails_where(call, error, any_call);
}

// For calls that give something back: they do, whatever they tell. `real` is the call itself.
template <typename Result, typename... Args>
Fault fails_when_done(interpose::Interposable<Result(Args...)>& call, Result (*real)(Args...),
                      int error)
{
    return answers(call, name_of(error) + " when done", any_call, [&call, real, error](Args... a) {
        real(a...);
        return std::optional<Result>(call.failed(error));
    });
}

// Memory, but for what openings of files, folders and pipes ask for themselves: running short of
// that is their failure. What is told of it decides what can be made of it.
Fault memory_is_null();
Fault memory_throws();
Fault mutex_has_no_memory(); // null, too, but its lack has a status of its own

// Clocks and sleeps.
Fault time_fails();
Fault sleep_is_interrupted();

// Semaphores fail only as the kernel lets them. What gives something back cannot fail while the set
// is there, and what was opened can be used; but another process may delete the set at any time.
Fault semop_has_no_memory(); // for what SEM_UNDO needs, at what takes something
Fault semop_is_interrupted();
Fault semop_finds_set_deleted();
Fault semop_sees_set_deleted(); // while it waits
Fault semctl_finds_set_deleted();
Fault set_cannot_be_deleted();

#endif
