// The validation thread over thousands of mounts: whatever it is late for, nobody waits for it, it
// touches nothing that is gone, and it leaves nothing behind.
#include "canned_helper.h"
#include "cycle_count.h"
#include "late_threads.h"
#include "process_state.h"
#include "real_mount.h"
#include "temp_dir.h"
#include "watchdog.h"

#include <ace/Event.h>

#include <chrono>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <thread>
#include <vector>

#include <malloc.h>

namespace
{

// Mounts and ends handles, one group after another, with all that differs taking its turn.
class Caller
{
public:
    Caller(LateThreads& threads, std::string server) : threads_(threads), server_(std::move(server))
    {
    }
    ~Caller()
    {
        while (!late_.empty())
            let_one_go();
    }
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    // Has that many handles mounted at once.
    void cycle(int handles = 1)
    {
        std::vector<std::unique_ptr<LateMount>> mounts;
        for (int i = 0; i < handles; ++i) {
            const auto until = static_cast<Until>(mounts_made_++ % untils);
            mounts.push_back(std::make_unique<LateMount>(threads_, server_, until));
        }
        for (const std::unique_ptr<LateMount>& mount : mounts)
            late_.push_back(mount->end(static_cast<Ending>(mounts_ended_++ / untils % endings)));
        while (late_.size() > most_late)
            let_one_go();
    }

private:
    static constexpr std::size_t most_late = 16;

    void let_one_go()
    {
        late_.front()->go_on.open();
        late_.pop_front();
    }

    LateThreads& threads_;
    const std::string server_;
    int mounts_made_ = 0;
    int mounts_ended_ = 0;
    std::deque<std::shared_ptr<Watched>> late_;
};

// What this process has, once it has no more threads than it had at first.
struct Belongings {
    Belongings()
    {
        look_until([] { return process_status("Threads") <= first_threads; });
        virtual_memory = process_status("VmSize");
        heap = static_cast<long>(mallinfo2().uordblks);
        descriptors = open_descriptors();
    }

    static inline long first_threads = 0;

    long virtual_memory; // kB
    long heap;           // bytes in use
    std::vector<std::string> descriptors;
};

std::string name_of(Late late)
{
    switch (late) {
    case Late::never:
        return "never";
    case Late::never_but_busy:
        return "never_but_busy";
    case Late::before_it_starts:
        return "before_it_starts";
    case Late::to_wake:
        return "to_wake";
    case Late::in_stat:
        return "in_stat";
    }
    return "";
}

class ValidationThreadTest : public testing::TestWithParam<Late>
{
protected:
    static void SetUpTestSuite()
    {
        mallopt(M_ARENA_MAX, 1); // or each new thread might reserve an address range
        std::filesystem::create_directories("/usr/varnis/var/ixfs");
        std::thread([] {}).join(); // with it a sanitizer may start one of its own
        Belongings::first_threads = process_status("Threads");
    }

    ValidationThreadTest() { image.make_folder("backups"); }

    void expect_nothing_left(const Belongings& before, int cycles)
    {
        const Belongings after;
        EXPECT_EQ(after.descriptors, before.descriptors);
        EXPECT_EQ(semaphore_sets().size(), 0U);
#ifndef IXFS_SANITIZED // malloc is as it is
        expect_no_memory_left(before, after, cycles);
#endif
        std::printf("%d cycles, late %s: VmSize %ld kB, then %ld kB; heap %ld bytes a cycle more\n",
                    cycles, name_of(GetParam()).c_str(), before.virtual_memory,
                    after.virtual_memory, (after.heap - before.heap) / cycles);
    }

    static void expect_no_memory_left(const Belongings& before, const Belongings& after, int cycles)
    {
        constexpr long event = (sizeof(ACE_Event) + 8 + 15) / 16 * 16; // as malloc has it
        constexpr long buffers = 32L << 10;                            // bytes, the C library's
        constexpr long old_stacks = 40L << 10; // kB, most that the C library keeps
        EXPECT_LE(after.heap - before.heap, cycles * event + buffers);
        EXPECT_LE(after.virtual_memory - before.virtual_memory, cycles * event / 1024 + old_stacks);
    }

    Watchdog watchdog{std::chrono::seconds(300)};
    TempDir image;
    // A real mount, since the library would delete a mere folder with the mount path's end.
    const RealMount mount = RealMount::tmpfs(image.path());
    CannedHelper helper{"MNTPATH=/m/x\nMOUNTPOINT=" + image.path() + "\nEXIT_STATUS=0\n"};
};

TEST_P(ValidationThreadTest, LeavesNothingBehindOneHandleAfterAnother)
{
    const int cycles = cycle_count(2'000);
    LateThreads threads(GetParam());
    const auto make = [&](int count) {
        Caller caller(threads, "media1");
        for (int i = 0; i < count; ++i)
            caller.cycle();
    };
    make(cycles / 20);
    const Belongings before;
    make(cycles);
    threads.wait_for_end();
    expect_nothing_left(before, cycles);
    EXPECT_EQ(threads.started, cycles / 20 + cycles);
    EXPECT_GT(threads.callbacks, 0);
    EXPECT_EQ(threads.callbacks_after_term, 0);
    if (threads.keeps_still()) {
        EXPECT_GE(threads.outlived, cycles / 4);
    }
}

TEST_P(ValidationThreadTest, LeavesNothingBehindWithSixtyFourHandlesOnEightThreads)
{
    constexpr int callers = 8;
    constexpr int handles = 8;
    const int rounds = cycle_count(2'000) / (callers * handles);
    LateThreads threads(GetParam());
    const auto make = [&](int count) {
        std::vector<std::thread> running;
        for (int i = 0; i < callers; ++i) {
            running.emplace_back([&, i] {
                Caller caller(threads, "media" + std::to_string(i));
                for (int round = 0; round < count; ++round)
                    caller.cycle(handles);
            });
        }
        for (std::thread& thread : running)
            thread.join();
    };
    make(2);
    const Belongings before;
    make(rounds);
    threads.wait_for_end();
    expect_nothing_left(before, rounds * callers * handles);
    EXPECT_EQ(threads.started, (2 + rounds) * callers * handles);
    EXPECT_EQ(threads.callbacks_after_term, 0);
}

INSTANTIATE_TEST_SUITE_P(Late, ValidationThreadTest,
                         testing::Values(Late::never, Late::never_but_busy, Late::before_it_starts,
                                         Late::to_wake, Late::in_stat),
                         [](const auto& test) { return name_of(test.param); });

} // namespace
