// Forks at any moment of other threads' calls: each child ends the handles of those calls, and
// neither hangs nor disturbs them.
#include "cycle_count.h"
#include "mount_mutex.h"

#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <random>
#include <thread>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

namespace
{

constexpr unsigned int longest_life = 10; // of a child, in seconds
constexpr int own_mounts_every = 8;

// Keeps the validation thread in its callback for a good part of the time.
void slow_callback(int /*severity*/, const char* /*tag*/, const char* /*message*/)
{
    usleep(200);
}

// Handles that are mounted and unmounted all the time, each by a thread of its own, and others that
// are made and ended.
class BusyThreads
{
public:
    BusyThreads()
    {
        for (std::size_t i = 0; i < handles_.size(); ++i)
            threads_.emplace_back([this, i] { mount_and_unmount(i); });
        threads_.emplace_back([this] {
            while (!ends_)
                quiet_handle();
        });
    }

    // Returns how many calls failed.
    int end()
    {
        ends_ = true;
        for (std::thread& thread : threads_)
            thread.join();
        handles_ = {};
        return failures_;
    }

    int cycles() const { return cycles_; }

    // For a child of this process.
    void end_handles() { handles_ = {}; }

private:
    void mount_and_unmount(std::size_t number)
    {
        while (!ends_) {
            const Handle& handle = handles_[number];
            failures_ += !mounts(handle, "media" + std::to_string(number));
            failures_ += !locks_and_deletes_views(handle, static_cast<long>(number));
            failures_ += !unmounts(handle);
            ++cycles_;
        }
    }

    static bool locks_and_deletes_views(const Handle& handle, long id)
    {
        char base_name[1024];
        _ixfs_view_t* const first = _ixfs_view_create(handle.get());
        _ixfs_view_t* const second = _ixfs_view_create(handle.get());
        const bool locked =
            _ixfs_view_lock(handle.get(), first, id, base_name, sizeof(base_name)) == 1;
        _ixfs_view_delete(handle.get(), second);
        _ixfs_view_delete(handle.get(), first);
        return locked;
    }

    static Handle slow_handle()
    {
        return Handle(ixfs_init(0, nullptr, slow_callback, nullptr, nullptr));
    }

    std::array<Handle, 2> handles_{slow_handle(), slow_handle()};
    std::vector<std::thread> threads_;
    std::atomic<bool> ends_{false};
    std::atomic<int> failures_{0};
    std::atomic<int> cycles_{0};
};

// What a child does. Returns how many calls of its own failed.
int end_handles(BusyThreads& busy, bool mounts_too)
{
    busy.end_handles();
    const Handle own = quiet_handle();
    if (!mounts_too)
        return 0;
    return static_cast<int>(!mounts(own, "media3")) + static_cast<int>(!unmounts(own));
}

// Returns whether a child ended well.
bool fork_once(BusyThreads& busy, bool mounts_too)
{
    const pid_t child = fork();
    if (child == 0) {
        alarm(longest_life);
        _exit(end_handles(busy, mounts_too));
    }
    int status = -1;
    waitpid(child, &status, 0);
    if (status != 0)
        std::fprintf(stderr, "a child ended with status %#x\n", static_cast<unsigned int>(status));
    return status == 0;
}

using ForkAtRandom = MountMutexTest;

TEST_F(ForkAtRandom, EndsNoChildBadlyAndDisturbsNoCall)
{
    const int forks = cycle_count(1000);
    EXPECT_EQ(run([forks](ChildProcess::Parent&) {
                  std::mt19937 random(4711);
                  std::uniform_int_distribution<useconds_t> pause(0, 3000);
                  BusyThreads busy;
                  int failures = 0;
                  for (int i = 0; i < forks; ++i) {
                      usleep(pause(random));
                      failures += !fork_once(busy, i % own_mounts_every == 0);
                  }
                  failures += busy.end();
                  std::printf("%d forks during %d mounts and unmounts: %d failures\n", forks,
                              busy.cycles(), failures);
                  std::fflush(stdout);
                  return failures == 0 ? 0 : 1;
              }),
              0);
}

} // namespace
