#include "late_threads.h"
#include "record_view.h"

#include "watchdog.h"

#include <climits>
#include <cstring>
#include <utility>

#include <linux/futex.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

thread_local Watched* own_handle;                  // of this thread, a validation thread
thread_local bool has_waited;                      // this validation thread
thread_local std::shared_ptr<Watched> used_handle; // by this thread, a caller of the library

void reach(Watched& watched, Until point)
{
    if (watched.until <= point)
        watched.go_on.open();
}

bool is_terminated(const Watched& watched)
{
    return watched.terminated.load(std::memory_order_relaxed);
}

void count_thread_callback(const Watched& watched)
{
    watched.threads.callbacks += 1;
    bool after_term = is_terminated(watched);
    sched_yield(); // gives an ixfs_term that does not wait the time to return
    after_term = after_term || is_terminated(watched);
    watched.threads.callbacks_after_term += after_term;
}

void log_callback(int /*severity*/, const char* /*tag*/, const char* message)
{
    if (own_handle != nullptr)
        count_thread_callback(*own_handle);
    else if (std::strcmp(message, "INF - Lets terminate the event...\n") == 0)
        reach(*used_handle, Until::stop_begun);
    else if (std::strcmp(message, "INF - Event terminated...\n") == 0)
        reach(*used_handle, Until::stopped);
}

// Marks a handle as in use by this thread for a scope.
class Use
{
public:
    explicit Use(std::shared_ptr<Watched> watched) { used_handle = std::move(watched); }
    ~Use() { used_handle.reset(); }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
};

} // namespace

void Gate::open()
{
    is_open_.store(1, std::memory_order_relaxed);
    syscall(SYS_futex, &is_open_, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

void Gate::wait() const
{
    while (is_open_.load(std::memory_order_relaxed) == 0)
        syscall(SYS_futex, &is_open_, FUTEX_WAIT_PRIVATE, 0, nullptr, nullptr, 0);
}

struct LateThreads::Start {
    std::shared_ptr<Watched> watched;
    void* (*function)(void*);
    void* argument;
};

LateThreads::LateThreads(Late late) : late_(late)
{
    if (late != Late::never && late != Late::before_it_starts)
        wait_.emplace(interpose::on_pthread_cond_timedwait(
            [this](auto... arguments) { return wait_for_event(arguments...); }));
    if (late == Late::in_stat)
        stat_.emplace(interpose::on_stat([this](auto...) { return hang_in_stat(); }));
}

void LateThreads::wait_for_end() const
{
    look_until([this] { return ended_ == started; });
}

std::optional<int> LateThreads::create(pthread_t* thread, const pthread_attr_t* attributes,
                                       void* (*function)(void*), void* argument)
{
    if (used_handle == nullptr)
        return std::nullopt;
    started += 1;
    return pthread_create(thread, attributes, run, new Start{used_handle, function, argument});
}

void* LateThreads::run(void* argument)
{
    const std::unique_ptr<Start> start(static_cast<Start*>(argument));
    own_handle = start->watched.get();
    LateThreads& threads = own_handle->threads;
    if (threads.late_ == Late::before_it_starts)
        threads.stand_still();
    void* const result = start->function(start->argument);
    threads.ended_ += 1;
    return result;
}

std::optional<int> LateThreads::wait_for_event(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                               const timespec* until)
{
    if (own_handle == nullptr)
        return std::nullopt;
    if (late_ != Late::to_wake) // its first wait is over at once
        return std::exchange(has_waited, true) ? std::nullopt : std::optional<int>(ETIMEDOUT);
    own_handle->arrived.open();
    const int result = pthread_cond_timedwait(condition, mutex, until);
    pthread_mutex_unlock(mutex); // as if it had not yet got it back
    stand_still();
    pthread_mutex_lock(mutex);
    return result;
}

std::optional<int> LateThreads::hang_in_stat()
{
    if (own_handle != nullptr)
        stand_still();
    return std::nullopt;
}

void LateThreads::stand_still()
{
    own_handle->arrived.open();
    own_handle->go_on.wait();
    outlived += is_terminated(*own_handle);
}

LateMount::LateMount(LateThreads& threads, const std::string& server, Until until)
    : watched_(std::make_shared<Watched>(threads, until)),
      handle_(ixfs_init(0, nullptr, log_callback, nullptr, nullptr))
{
    const Use use(watched_);
    EXPECT_NE(
        ixfs_mount(handle_.get(), "mount-cred", "unmount-cred", 1, server.c_str(), 0, nullptr),
        nullptr)
        << ixfs_last_error(handle_.get());
    if (threads.keeps_still())
        watched_->arrived.wait();
    reach(*watched_, Until::mounted);
}

std::shared_ptr<Watched> LateMount::end(Ending ending)
{
    const Use use(watched_);
    if (ending == Ending::unmounted) {
        EXPECT_EQ(ixfs_unmount(handle_.get()), EC_OK);
    } else if (ending == Ending::with_mount_failed) {
        _ixfs_no_mount(handle_.get(), EC_OK);
    }
    reach(*watched_, Until::unmounted);
    handle_.reset();
    watched_->terminated.store(true, std::memory_order_relaxed);
    reach(*watched_, Until::terminated);
    return watched_;
}
