// Mounts whose validation threads are late: each stands still at a chosen point until its handle
// has come to another, which may be long after the handle's end.
#ifndef IXFS_TESTS_LATE_THREADS_H
#define IXFS_TESTS_LATE_THREADS_H

#include "handle_test.h"
#include "interpose.h"

#include <atomic>
#include <memory>
#include <optional>
#include <string>

// Lets threads wait for each other without ordering what they do to memory. Were it a lock,
// ThreadSanitizer would take the tested threads for synchronised by the test.
class Gate
{
public:
    void open();
    void wait() const;

private:
    std::atomic<int> is_open_{0};
};

// Where a validation thread is late.
enum class Late {
    never,
    never_but_busy,   // looks into the mount while its handle goes on
    before_it_starts, // before its first instruction
    to_wake,          // signalled, and its wait not yet left
    in_stat           // in a stat of the mounted file system that hangs
};

// What its handle must have come to before a late thread goes on.
enum class Until {
    mounted,
    stop_begun, // within ixfs_unmount, before the thread is signalled
    stopped,    // within ixfs_unmount, after that
    unmounted,
    terminated,
    later // the test says when
};
inline constexpr int untils = static_cast<int>(Until::later) + 1;

// How a handle comes to its end, by ixfs_term in each case.
enum class Ending { mounted, unmounted, with_mount_failed };
inline constexpr int endings = static_cast<int>(Ending::with_mount_failed) + 1;

class LateThreads;

// A handle and its validation thread, as the test sees them.
struct Watched {
    Watched(LateThreads& threads_, Until until_) : threads(threads_), until(until_) {}

    LateThreads& threads;
    const Until until;
    Gate arrived; // the thread is where it is late
    Gate go_on;
    std::atomic<bool> terminated{false};
};

// A number of events. Orders nothing for those that add to it, and their past before a reader's
// future.
class Count
{
public:
    void operator+=(int events) { number_.fetch_add(events, std::memory_order_release); }
    operator int() const { return number_.load(std::memory_order_acquire); }

private:
    std::atomic<int> number_{0};
};

// Makes the threads of all LateMounts late. One at a time. Holds on_pthread_create and, where they
// are late in them, on_pthread_cond_timedwait and on_stat. Its end waits for all threads.
class LateThreads
{
public:
    explicit LateThreads(Late late);
    ~LateThreads() { wait_for_end(); }
    LateThreads(const LateThreads&) = delete;
    LateThreads& operator=(const LateThreads&) = delete;

    // Whether its threads stand still somewhere.
    bool keeps_still() const { return late_ != Late::never && late_ != Late::never_but_busy; }

    // Waits until all threads started so far, which must have been let go, have ended.
    void wait_for_end() const;

    Count started;
    Count outlived;             // stood still until after their handle's end
    Count callbacks;            // from validation threads
    Count callbacks_after_term; // those of them not over when ixfs_term had returned

private:
    struct Start;

    static void* run(void* start);
    std::optional<int> create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*function)(void*), void* argument);
    std::optional<int> wait_for_event(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                      const timespec* until);
    std::optional<int> hang_in_stat();
    void stand_still();

    const Late late_;
    Count ended_;
    decltype(interpose::on_pthread_create)::Hook create_ =
        interpose::on_pthread_create([this](auto... arguments) { return create(arguments...); });
    std::optional<decltype(interpose::on_pthread_cond_timedwait)::Hook> wait_;
    std::optional<decltype(interpose::on_stat)::Hook> stat_;
};

// A mounted handle. Used by one thread.
class LateMount
{
public:
    // Mounts, and waits until the validation thread is where it is late.
    LateMount(LateThreads& threads, const std::string& server, Until until);

    // Ends the handle. Returns what is left: a thread that is late until later has to be let go
    // through it.
    std::shared_ptr<Watched> end(Ending ending);

private:
    std::shared_ptr<Watched> watched_;
    Handle handle_;
};

#endif
