// Signals that come while a call waits for the mount mutex.
#include "mount_mutex.h"

#include "process_mutex_set.h"
#include "process_state.h"

#include <atomic>
#include <csignal>
#include <new>
#include <ostream>
#include <string>
#include <tuple>

#include <sys/mman.h>
#include <sys/sem.h>

namespace
{

// Counts the signals that a child handles, where its parent sees it.
std::atomic<int>& handled_signals()
{
    static void* const memory = mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE,
                                     MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    static auto* const counter = new (memory) std::atomic<int>(0);
    return *counter;
}

void handle_signal(int flags)
{
    struct sigaction action {
    };
    action.sa_handler = [](int) {
        ++handled_signals();
    };
    action.sa_flags = flags;
    sigaction(SIGUSR1, &action, nullptr);
}

using Call = bool (*)(const Handle&);

bool mount_call(const Handle& handle)
{
    return mounts(handle);
}

bool context_call(const Handle& handle)
{
    return recreates_context(handle);
}

struct WaitingCall {
    const char* name;
    Call call;
    bool wants_mount;
};

void PrintTo(const WaitingCall& waiting, std::ostream* stream)
{
    *stream << waiting.name;
}

constexpr WaitingCall waiting_calls[] = {
    {"Mount", mount_call, false},
    {"Unmount", unmounts, true},
    {"Context", context_call, false},
};

constexpr int flags_of_handlers[] = {0, SA_RESTART};

// Makes the call on a handle of its own, after a pause where a parent is given. Returns what was
// logged, or nothing where the call failed.
Lines make_call(const WaitingCall& waiting, LogRecorder& log, ChildProcess::Parent* parent)
{
    const Handle handle = make_handle();
    if (waiting.wants_mount && !mounts(handle))
        return {};
    log.take();
    if (parent != nullptr)
        parent->pause();
    const bool success = waiting.call(handle);
    return success ? log.lines_here() : Lines{};
}

bool a_process_waits()
{
    const auto sets = semaphore_sets();
    return sets.size() == 1 && semctl(sets.front().id, process_mutex_set::lock, GETNCNT) == 1;
}

class SignalInWait : public MountMutexTest,
                     public testing::WithParamInterface<std::tuple<WaitingCall, int>>
{
};

TEST_P(SignalInWait, NeitherEndsItNorIsLogged)
{
    const auto [waiting, flags] = GetParam();
    handled_signals() = 0;
    ChildProcess child = start([waiting = waiting, flags = flags](ChildProcess::Parent& parent) {
        LogRecorder log;
        handle_signal(flags);
        make_call(waiting, log,
                  nullptr); // makes the folders, of which the later calls say the same
        const Lines undisturbed = make_call(waiting, log, nullptr);
        const Lines disturbed = make_call(waiting, log, &parent);
        return undisturbed.empty() || disturbed != undisturbed ? 1 : 0;
    });
    child.wait_for_pause();
    helper.hold_next_run();
    ChildProcess holder = start(mount_and_unmount);
    ExclusiveHelper::HeldRun held(helper);
    child.go_on();
    look_until([&] { return a_process_waits() || child.has_ended(); });

    for (int signals = 1; signals <= 3 && !child.has_ended(); ++signals) {
        child.send(SIGUSR1);
        look_until([&] { return handled_signals() == signals; });
        look_until([&] { return a_process_waits() || child.has_ended(); });
    }
    EXPECT_FALSE(child.has_ended()) << "it waits on";
    held.let_go(0);
    EXPECT_EQ(holder.wait(), 0);
    EXPECT_EQ(child.wait(), 0);
}

std::string name_of(const testing::TestParamInfo<SignalInWait::ParamType>& info)
{
    return std::string(std::get<0>(info.param).name) +
           (std::get<1>(info.param) == 0 ? "ThatIsNotRestarted" : "ThatIsRestarted");
}

INSTANTIATE_TEST_SUITE_P(MountMutexTest, SignalInWait,
                         testing::Combine(testing::ValuesIn(waiting_calls),
                                          testing::ValuesIn(flags_of_handlers)),
                         name_of);

// A stopped process fails what it waits for with EINTR, even with every signal blocked.
class StopWhileOpening : public MountMutexTest
{
protected:
    // Keeps everybody from opening the mutex, or lets them.
    static void change_guard(int set, short by)
    {
        sembuf operation{process_mutex_set::guard, by, 0};
        ASSERT_EQ(semop(set, &operation, 1), 0);
    }

    static bool is_opening(int set, int processes)
    {
        return semctl(set, process_mutex_set::guard, GETZCNT) == processes;
    }
};

TEST_F(StopWhileOpening, LetsTheCallGoOnAfterwards)
{
    helper.hold_next_run();
    ChildProcess holder = start(mount_and_unmount);
    ExclusiveHelper::HeldRun held(helper);
    const auto sets = semaphore_sets();
    ASSERT_EQ(sets.size(), 1U);
    const int set = sets.front().id;
    change_guard(set, 1);
    ChildProcess child = start(mount_and_unmount);
    look_until([&] { return is_opening(set, 1); });

    child.send(SIGSTOP);
    look_until([&] { return is_opening(set, 0); });
    child.send(SIGCONT);
    look_until([&] { return is_opening(set, 1) || child.has_ended(); });
    EXPECT_FALSE(child.has_ended());
    change_guard(set, -1);
    held.let_go(0);
    EXPECT_EQ(holder.wait(), 0);
    EXPECT_EQ(child.wait(), 0);
}

} // namespace
