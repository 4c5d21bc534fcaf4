// Holders and waiters of the mount mutex that are killed, stopped and continued at random.
#include "mount_mutex.h"

#include "cycle_count.h"

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <new>
#include <optional>
#include <random>
#include <thread>

#include <sys/mman.h>
#include <sys/time.h>

namespace
{

constexpr int slots = 12; // processes at a time
constexpr int usual_seconds = 20;
constexpr int longest_pause = 4000;          // between two signals, in microseconds
constexpr suseconds_t alarm_interval = 3000; // in every second process, in microseconds
constexpr int most_processes = 1'000'000;
constexpr int nobody = -1;

// What all processes see and write. The helper of a process that is killed goes on beside the next
// one's, so helpers cannot judge. The processes note here who holds the mutex, and the one that
// kills them notes whom it has condemned, before it does.
struct Notes {
    std::atomic<int> holder{nobody};
    std::atomic<int> turns;
    std::atomic<int> turns_of_the_dead; // that ended with a death
    std::atomic<int> overlaps;
    std::atomic<int> failures;
    std::atomic<bool> over;
    std::array<std::atomic<bool>, most_processes> condemned;
};

Notes& notes()
{
    static void* const memory =
        mmap(nullptr, sizeof(Notes), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    static auto* const shared = new (memory) Notes;
    return *shared;
}

int own_number = nobody;

bool begins_with(const char* text, const char* beginning)
{
    return std::strncmp(text, beginning, std::strlen(beginning)) == 0;
}

// The log callback of each process. Both lines are logged with the mutex held.
void note_turn(int, const char*, const char* message)
{
    if (begins_with(message, "INF - running command")) {
        const int before = notes().holder.exchange(own_number);
        ++notes().turns;
        if (before != nobody)
            ++(notes().condemned[static_cast<std::size_t>(before)] ? notes().turns_of_the_dead
                                                                   : notes().overlaps);
    } else if (begins_with(message, "INF - response - EXIT_STATUS")) {
        int self = own_number;
        if (!notes().holder.compare_exchange_strong(self, nobody))
            ++notes().overlaps;
    }
}

void send_alarms()
{
    struct sigaction action {
    };
    action.sa_handler = [](int) {
    };
    sigaction(SIGALRM, &action, nullptr);
    const itimerval timer{{0, alarm_interval}, {0, alarm_interval}};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

int use_mutex_until_the_end(int number)
{
    own_number = number;
    if (number % 2 == 0)
        send_alarms();
    while (!notes().over) {
        const Handle handle(ixfs_init(0, nullptr, note_turn, nullptr, nullptr));
        notes().failures += static_cast<int>(!mounts(handle));
        notes().failures += static_cast<int>(!unmounts(handle));
        notes().failures += static_cast<int>(!recreates_context(handle));
    }
    return 0;
}

class MutexStress : public MountMutexTest
{
protected:
    MutexStress() { notes(); }

    void start_in(std::size_t slot)
    {
        const int number = next_number_++;
        numbers_[slot] = number;
        children_[slot].emplace(
            start([number](ChildProcess::Parent&) { return use_mutex_until_the_end(number); }));
    }

    void kill_in(std::size_t slot)
    {
        notes().condemned[static_cast<std::size_t>(numbers_[slot])] = true;
        children_[slot]->kill();
        EXPECT_EQ(children_[slot]->wait(), -SIGKILL);
        children_[slot].reset();
    }

    void pause()
    {
        std::uniform_int_distribution<int> length(0, longest_pause);
        std::this_thread::sleep_for(std::chrono::microseconds(length(random_)));
    }

    std::size_t any_slot()
    {
        return std::uniform_int_distribution<std::size_t>(0, slots - 1)(random_);
    }

    bool one_in(int count) { return std::uniform_int_distribution<int>(1, count)(random_) == 1; }

    const unsigned int seed_ = std::random_device()();
    std::mt19937 random_{seed_};
    std::array<std::optional<ChildProcess>, slots> children_;
    std::array<int, slots> numbers_{};
    int next_number_ = 0;
};

TEST_F(MutexStress, LeavesNoTwoLivingHoldersAndNobodyStuck)
{
    for (std::size_t slot = 0; slot < slots; ++slot)
        start_in(slot);
    int kills = 0;
    int stops = 0;
    const auto end =
        std::chrono::steady_clock::now() + std::chrono::seconds(cycle_count(usual_seconds));
    while (std::chrono::steady_clock::now() < end) {
        pause();
        const std::size_t slot = any_slot();
        if (one_in(3)) {
            ++kills;
            kill_in(slot);
            start_in(slot);
        } else {
            ++stops;
            children_[slot]->send(SIGSTOP);
            pause();
            if (one_in(10)) {
                ++kills;
                kill_in(slot);
                start_in(slot);
            } else {
                children_[slot]->send(SIGCONT);
            }
        }
    }
    notes().over = true;
    for (auto& child : children_)
        EXPECT_EQ(child->wait(), 0);

    helper.take_overlaps(); // with the helpers of the dead
    EXPECT_EQ(notes().overlaps, 0) << "seed " << seed_;
    EXPECT_EQ(notes().failures, 0) << "seed " << seed_;
    EXPECT_GT(notes().turns, kills);
    EXPECT_GT(notes().turns_of_the_dead, 0) << "no holder was ever killed";
    std::printf("%d turns of %d processes, %d killed (%d of them holders), %d stopped\n",
                notes().turns.load(), next_number_, kills, notes().turns_of_the_dead.load(), stops);
}

} // namespace
