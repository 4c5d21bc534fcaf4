// Processes killed while they hold, await, make or delete the mount mutex.
#include "mount_mutex.h"

#include "cycle_count.h"
#include "interpose.h"
#include "process_state.h"

#include <csignal>
#include <cstdio>
#include <vector>

namespace
{

// Kills this process at its n-th call that is about semaphores, and before that deletes every lock
// at another. Neither happens at call 0.
class SemaphoreFaults
{
public:
    explicit SemaphoreFaults(int killed_at, int lock_deleted_at = 0)
        : killed_at_(killed_at), lock_deleted_at_(lock_deleted_at)
    {
    }

private:
    std::optional<int> next_call()
    {
        ++call_;
        if (call_ == lock_deleted_at_)
            delete_every_semaphore_set();
        if (call_ == killed_at_)
            raise(SIGKILL);
        return std::nullopt;
    }

    int killed_at_;
    int lock_deleted_at_;
    int call_ = 0;
    decltype(interpose::on_semget)::Hook semget_ =
        interpose::on_semget([this](key_t, int, int) { return next_call(); });
    decltype(interpose::on_semop)::Hook semop_ =
        interpose::on_semop([this](int, const sembuf*, std::size_t) { return next_call(); });
    decltype(interpose::on_semctl)::Hook semctl_ =
        interpose::on_semctl([this](int, int, int, const void*) { return next_call(); });
};

class MountMutexCrashTest : public MountMutexTest
{
protected:
    int mount_and_unmount_with_faults(int killed_at, int lock_deleted_at = 0)
    {
        return run([=](ChildProcess::Parent& parent) {
            const SemaphoreFaults faults(killed_at, lock_deleted_at);
            return mount_and_unmount(parent);
        });
    }

    // Kills a process at each of its calls from the deletion of its lock on. Returns whether it got
    // that far.
    bool killed_after_deletion_at(int deleted_at, int& kills)
    {
        int call = deleted_at;
        int result = 0;
        while ((result = mount_and_unmount_with_faults(call, deleted_at)) == -SIGKILL) {
            EXPECT_EQ(run(mount_and_unmount), 0)
                << "deleted at call " << deleted_at << ", killed at call " << call;
            ++call;
            ++kills;
        }
        EXPECT_EQ(result, 0) << "deleted at call " << deleted_at;
        return call > deleted_at;
    }
};

TEST_F(MountMutexCrashTest, HolderKilledDuringAHelperRunFreesTheOthers)
{
    constexpr int waiters = 3;
    helper.hold_next_run();
    ChildProcess holder = start(mount_and_unmount);
    const ExclusiveHelper::HeldRun held(helper);
    std::vector<ChildProcess> waiting;
    for (int i = 0; i < waiters; ++i)
        waiting.push_back(start(mount_and_unmount));
    wait_for_waiters(waiters);

    holder.kill();
    EXPECT_EQ(holder.wait(), -SIGKILL);
    for (ChildProcess& child : waiting)
        EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(helper.runs(), 1 + 2 * waiters);
    EXPECT_EQ(helper.take_overlaps(), 2 * waiters) << "the killed one's helper is still running";
}

TEST_F(MountMutexCrashTest, KilledWaiterDisturbsNobody)
{
    helper.hold_next_run();
    ChildProcess holder = start(mount_and_unmount);
    ExclusiveHelper::HeldRun held(helper);
    ChildProcess first = start(mount_and_unmount);
    ChildProcess killed = start(mount_and_unmount);
    ChildProcess last = start(mount_and_unmount);
    wait_for_waiters(3);

    killed.kill();
    EXPECT_EQ(killed.wait(), -SIGKILL);
    wait_for_waiters(2);
    held.let_go(0);
    EXPECT_EQ(holder.wait(), 0);
    EXPECT_EQ(first.wait(), 0);
    EXPECT_EQ(last.wait(), 0);
}

TEST_F(MountMutexCrashTest, KilledAtAnySemaphoreCallLeavesAMutexForTheNext)
{
    int call = 1;
    while (mount_and_unmount_with_faults(call) == -SIGKILL) {
        EXPECT_EQ(run(mount_and_unmount), 0) << "killed at call " << call;
        EXPECT_EQ(semaphore_sets().size(), 0U) << "killed at call " << call;
        ++call;
    }
    EXPECT_EQ(mount_and_unmount_with_faults(call), 0) << "a run without a fault";
    EXPECT_GE(call, 10);
    std::printf("killed at each of %d calls\n", call - 1);
}

TEST_F(MountMutexCrashTest, KilledAtAnySemaphoreCallDisturbsNoMountThatStands)
{
    int call = 1;
    for (int result = -SIGKILL; result == -SIGKILL; ++call) {
        ChildProcess standing = start(mount_pause_and_unmount);
        standing.wait_for_pause();
        result = mount_and_unmount_with_faults(call);
        standing.go_on();
        EXPECT_EQ(standing.wait(), 0) << "killed at call " << call;
        EXPECT_EQ(run(mount_and_unmount), 0) << "killed at call " << call;
    }
    EXPECT_GE(call, 10);
}

// Whatever way the making of a lock takes when others delete it at the same time, a process that is
// killed on that way leaves a mutex for the next.
TEST_F(MountMutexCrashTest, KilledAfterItsLockWasDeletedLeavesAMutexForTheNext)
{
    int kills = 0;
    for (int deleted_at = 1; killed_after_deletion_at(deleted_at, kills); ++deleted_at)
        continue;
    EXPECT_GE(kills, 100);
    std::printf("killed %d times\n", kills);
}

// As ipcrm does it.
TEST_F(MountMutexCrashTest, LockDeletedUnderItsHolderIsMadeAgainAndNotHeldUpByTheHolder)
{
    ChildProcess holder = start([](ChildProcess::Parent& parent) {
        const int failures = mount_pause_and_unmount(parent);
        parent.pause();
        return failures;
    });
    holder.wait_for_pause();
    helper.hold_next_run();
    holder.go_on();
    ExclusiveHelper::HeldRun held_unmount(helper);

    delete_every_semaphore_set();
    ChildProcess standing = start(mount_pause_and_unmount);
    standing.wait_for_pause();
    EXPECT_EQ(helper.take_overlaps(), 1) << "the holder's run goes on";

    held_unmount.let_go(0);
    holder.wait_for_pause();
    EXPECT_EQ(run(mount_and_unmount), 0) << "while the former holder lives";
    holder.go_on();
    EXPECT_EQ(holder.wait(), 0);
    standing.go_on();
    EXPECT_EQ(standing.wait(), 0);
}

TEST_F(MountMutexCrashTest, ProcessesThatAreKilledDisturbNoOthers)
{
    constexpr int processes = 16;
    const int cycles = cycle_count(8);
    std::vector<ChildProcess> lasting;
    for (int i = 0; i < processes; ++i) {
        lasting.push_back(start([cycles](ChildProcess::Parent& parent) {
            int failures = 0;
            for (int cycle = 0; cycle < cycles; ++cycle)
                failures += mount_and_unmount(parent);
            return failures;
        }));
    }
    for (int call = 1; call <= cycle_count(80); ++call) {
        const int result = run([call](ChildProcess::Parent& parent) {
            const SemaphoreFaults faults(call % 50 + 1);
            while (mount_and_unmount(parent) == 0)
                continue;
            return 1;
        });
        EXPECT_EQ(result, -SIGKILL);
    }
    for (ChildProcess& child : lasting)
        EXPECT_EQ(child.wait(), 0);
    EXPECT_EQ(run(mount_and_unmount), 0) << "after the last one killed";
}

} // namespace
