// How long processes wait for the mount mutex when many of them want it all the time.
#include "mount_mutex.h"

#include "cycle_count.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <new>
#include <vector>

#include <sys/mman.h>

namespace
{

constexpr int processes = 32;
constexpr int helper_lasts = 20; // milliseconds

using Clock = std::chrono::steady_clock;

struct Wait {
    int turns; // of others, from the line that says that the wait begins to one's own
    double seconds;
};

// What all processes see and write.
struct Turns {
    std::atomic<int> taken;
    std::atomic<std::size_t> waits_over;
    Wait waits[100'000];
};

Turns& turns()
{
    static void* const memory =
        mmap(nullptr, sizeof(Turns), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    static auto* const shared = new (memory) Turns{};
    return *shared;
}

// The log callback of each process. A wait begins with a line of its own, and the next line comes
// from who has the mutex. The validation thread's lines are no part of that.
void count_turns(int, const char* tag, const char* message)
{
    thread_local bool waiting = false;
    thread_local int turns_before = 0;
    thread_local Clock::time_point begin;
    if (std::strstr(message, "waiting for mount mutex") != nullptr) {
        waiting = true;
        turns_before = turns().taken;
        begin = Clock::now();
    } else if (waiting &&
               (std::strcmp(tag, "ixfs_mount()") == 0 || std::strcmp(tag, "ixfs_unmount()") == 0 ||
                std::strcmp(tag, "_ixfs_folder_create()") == 0)) {
        waiting = false;
        const std::chrono::duration<double> took = Clock::now() - begin;
        turns().waits[turns().waits_over++] = {turns().taken++ - turns_before, took.count()};
    }
}

int mount_again_and_again(int cycles)
{
    const Handle handle(ixfs_init(0, nullptr, count_turns, nullptr, nullptr));
    int failures = 0;
    for (int i = 0; i < cycles; ++i)
        failures += static_cast<int>(!mounts(handle)) + static_cast<int>(!unmounts(handle));
    return failures;
}

template <typename Value, typename Measure>
Value median(const std::vector<Wait>& waits, Measure measure)
{
    std::vector<Value> values;
    std::transform(waits.begin(), waits.end(), std::back_inserter(values), measure);
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

template <typename Value, typename Measure>
Value longest(const std::vector<Wait>& waits, Measure measure)
{
    Value most{};
    for (const Wait& wait : waits)
        most = std::max<Value>(most, measure(wait));
    return most;
}

// Turns are counted, and not seconds, since a busy machine stretches those. In a fair queue a wait
// lasts as many turns as there are other processes. More come only between the line that says that
// the wait begins and the wait itself: about one for each 20 ms that the process does not run
// there. The limit allows for as many as there are processes, more than half a second.
TEST_F(MountMutexTest, NobodyWaitsMuchLongerThanTheOthers)
{
    helper.set_duration(helper_lasts);
    turns();
    const int cycles = cycle_count(6);
    std::vector<ChildProcess> children;
    for (int i = 0; i < processes; ++i)
        children.push_back(
            start([=](ChildProcess::Parent&) { return mount_again_and_again(cycles); }));
    for (ChildProcess& child : children)
        EXPECT_EQ(child.wait(), 0);

    const std::vector<Wait> waits(turns().waits, turns().waits + turns().waits_over);
    ASSERT_EQ(waits.size(), static_cast<std::size_t>(processes * cycles * 2));
    const auto in_turns = [](const Wait& wait) {
        return wait.turns;
    };
    const auto in_seconds = [](const Wait& wait) {
        return wait.seconds;
    };
    const int usual = median<int>(waits, in_turns);
    const int most = longest<int>(waits, in_turns);
    EXPECT_LE(most, 2 * processes) << "turns; the median is " << usual;
    std::printf("waits of %d processes: median %d turns, %.3f s; longest %d turns, %.3f s; "
                "longest/median %.2f in turns, %.2f in time\n",
                processes, usual, median<double>(waits, in_seconds), most,
                longest<double>(waits, in_seconds), 1.0 * most / usual,
                longest<double>(waits, in_seconds) / median<double>(waits, in_seconds));
}

} // namespace
