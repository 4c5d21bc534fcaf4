// Processes that take the mount mutex at the same time.
#include "mount_mutex.h"
#include "record_view.h"

#include "cycle_count.h"
#include "process_state.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <vector>

#include <sys/sem.h>

namespace
{

// Mounts, unmounts and recreates the context on one handle. Returns how many calls failed.
int cycle_all(int cycles, const std::string& server)
{
    const Handle handle = quiet_handle();
    int failures = 0;
    for (int i = 0; i < cycles; ++i) {
        failures += !mounts(handle, server);
        failures += !unmounts(handle);
        failures += !recreates_context(handle, server);
        _ixfs_no_mount(handle.get(), EC_OK);
    }
    return failures;
}

TEST_F(MountMutexTest, FiftyProcessesNeitherFailNorOverlap)
{
    constexpr int processes = 50;
    const int cycles = cycle_count(4);
    const auto begin = std::chrono::steady_clock::now();
    std::vector<ChildProcess> children;
    for (int i = 0; i < processes; ++i) {
        children.push_back(start(
            [=](ChildProcess::Parent&) { return cycle_all(cycles, "media" + std::to_string(i)); }));
    }
    int failures = 0;
    for (ChildProcess& child : children)
        failures += child.wait() != 0;
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;

    EXPECT_EQ(failures, 0) << "processes";
    EXPECT_EQ(helper.runs(), processes * cycles * 2);
    std::printf("%d processes x %d cycles in %.1f s: %d processes with failures, %d overlaps\n",
                processes, cycles, took.count(), failures, helper.overlaps());
}

TEST_F(MountMutexTest, TwoMountsOfOneProcessBothUnmount)
{
    EXPECT_EQ(run([](ChildProcess::Parent&) {
                  const Handle first = quiet_handle();
                  const Handle second = quiet_handle();
                  return static_cast<int>(!mounts(first, "media1")) + !mounts(second, "media2") +
                         !unmounts(first) + !unmounts(second);
              }),
              0);
    EXPECT_EQ(helper.runs(), 4);
}

class TwoProcesses : public MountMutexTest, public testing::WithParamInterface<bool>
{
};

TEST_P(TwoProcesses, BothUnmount)
{
    ChildProcess first = start(mount_pause_and_unmount);
    first.wait_for_pause();
    ChildProcess second = start(mount_pause_and_unmount);
    second.wait_for_pause();

    const bool first_goes_first = GetParam();
    ChildProcess& sooner = first_goes_first ? first : second;
    ChildProcess& later = first_goes_first ? second : first;
    sooner.go_on();
    EXPECT_EQ(sooner.wait(), 0);
    later.go_on();
    EXPECT_EQ(later.wait(), 0);
    EXPECT_EQ(helper.runs(), 4);
}

INSTANTIATE_TEST_SUITE_P(MountMutexTest, TwoProcesses, testing::Bool());

TEST_F(MountMutexTest, FailingMountLetsEachWaiterIn)
{
    constexpr int waiters = 10;
    helper.hold_next_run();
    ChildProcess failing = start([](ChildProcess::Parent&) {
        const Handle handle = quiet_handle();
        const char* const mount_point =
            ixfs_mount(handle.get(), "mount-cred", "unmount-cred", 1, "media1", 0, nullptr);
        return mount_point == nullptr ? static_cast<int>(ixfs_last_error(handle.get())) : 0;
    });
    ExclusiveHelper::HeldRun held(helper);

    std::vector<ChildProcess> waiting;
    for (int i = 0; i < waiters; ++i)
        waiting.push_back(start(mount_and_unmount));
    wait_for_waiters(waiters);
    EXPECT_EQ(helper.runs(), 1);

    constexpr int helper_fails = 5;
    held.let_go(helper_fails);
    EXPECT_EQ(failing.wait(), EC_HELPER_FAILED);
    for (ChildProcess& child : waiting)
        EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(helper.runs(), 1 + 2 * waiters);
}

// The only set of semaphores there is.
semid_ds status_of_the_set()
{
    semid_ds status{};
    semctl(semaphore_sets().at(0).id, 0, IPC_STAT, &status);
    return status;
}

// Puts a set of another make into the mutex's place.
void replace_the_set()
{
    const key_t key = status_of_the_set().sem_perm.__key;
    delete_every_semaphore_set();
    semget(key, 1, IPC_CREAT | 0600);
}

// The set in the mutex's place makes each opening fail with EINVAL, which from a wait would mean
// that the mutex is to be opened again.
TEST_F(MountMutexTest, MutexThatCannotBeOpenedIsAFailureAndNoEndlessLoop)
{
    ChildProcess standing = start([](ChildProcess::Parent& parent) {
        const Handle mounted = quiet_handle();
        const Handle handle = quiet_handle();
        mounts(mounted);
        parent.pause();
        errno = EINVAL;
        if (ixfs_mount(handle.get(), "mount-cred", "unmount-cred", 1, "media1", 0, nullptr) !=
                nullptr ||
            ixfs_last_error(handle.get()) != EC_SYSTEM_ERROR)
            return 1;
        if (ixfs_recreate_minimal_context(handle.get(), "mount-cred", "unmount-cred", 1, "media1",
                                          0, "/m/x") == 0 ||
            ixfs_last_error(handle.get()) != EC_SYSTEM_ERROR)
            return 2;
        return ixfs_unmount(mounted.get()) == EC_SYSTEM_ERROR ? 0 : 3;
    });
    standing.wait_for_pause();
    replace_the_set();
    standing.go_on();
    EXPECT_EQ(standing.wait(), 0);
    EXPECT_EQ(status_of_the_set().sem_nsems, 1U) << "the foreign set is left alone";
    delete_every_semaphore_set();
    EXPECT_EQ(helper.runs(), 1);
}

} // namespace
