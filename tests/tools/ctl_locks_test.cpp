// The library's locks as the tools see them.
#include "ctl_test.h"
#include "host_locks.h"

#include <cerrno>

#include <sys/sem.h>

using testing::SizeIs;

namespace
{

constexpr unsigned short guard = 0;

using CtlLocks = CtlTest;

TEST_F(CtlLocks, MountLockIsTheLibrarys)
{
    EXPECT_FALSE(find_mount_mutex());
    ChildProcess caller = start_caller_in_helper();
    const auto held = find_mount_mutex();
    ASSERT_TRUE(held);
    EXPECT_TRUE(held->held);
    EXPECT_EQ(held->users, 1);
    EXPECT_TRUE(find_view_locks().empty());
    EXPECT_FALSE(delete_unused(*held));
    EXPECT_EQ(errno, EBUSY);
    caller.kill();
    caller.wait();

    const auto left = find_mount_mutex();
    ASSERT_TRUE(left);
    EXPECT_FALSE(left->held);
    EXPECT_EQ(left->users, 0);
    EXPECT_TRUE(delete_unused(*left));
    EXPECT_FALSE(find_mount_mutex());
    EXPECT_FALSE(delete_unused(*left));
    EXPECT_EQ(errno, EINVAL) << "it is gone";
    run_ctl({"clean", "--yes"});
}

TEST_F(CtlLocks, LockOpenedBetweenLookAndDeletionStays)
{
    ChildProcess killed = start_caller_in_helper();
    killed.kill();
    killed.wait();
    run_ctl({"clean", "--yes", "--server", "media1"});
    const auto left = find_mount_mutex();
    ASSERT_TRUE(left);

    ChildProcess caller = start_caller_in_helper();
    EXPECT_FALSE(delete_unused(*left));
    EXPECT_EQ(errno, EBUSY);
    const auto still = find_mount_mutex();
    ASSERT_TRUE(still);
    EXPECT_EQ(still->set, left->set);
    EXPECT_FALSE(still->busy) << "the guard was given back";
    caller.kill();
    caller.wait();
    run_ctl({"clean", "--yes"});
}

TEST_F(CtlLocks, LockThatAProcessIsBusyWithStays)
{
    ChildProcess killed = start_caller_in_helper();
    killed.kill();
    killed.wait();
    const auto left = find_mount_mutex();
    ASSERT_TRUE(left);
    sembuf raise[] = {{guard, 1, SEM_UNDO}};
    ASSERT_EQ(semop(left->set, raise, 1), 0);
    EXPECT_TRUE(find_mount_mutex()->busy);
    EXPECT_FALSE(delete_unused(*left));
    EXPECT_EQ(errno, EBUSY);
    sembuf lower[] = {{guard, -1, SEM_UNDO}};
    ASSERT_EQ(semop(left->set, lower, 1), 0);
    run_ctl({"clean", "--yes"});
}

TEST_F(CtlLocks, MountLockThatWasOnlyJustCreatedIsCleaned)
{
    ChildProcess killed = start_caller_in_helper();
    const key_t key = find_mount_mutex()->key;
    killed.kill();
    killed.wait();
    run_ctl({"clean", "--yes"});
    ASSERT_NE(semget(key, 3, IPC_CREAT | 0644), -1);
    const auto created = find_mount_mutex();
    ASSERT_TRUE(created);
    EXPECT_FALSE(created->ready);
    EXPECT_FALSE(created->held);
    EXPECT_THAT(finding_ids(status_of_host()), testing::ElementsAre("unused_mount_mutex"));
    EXPECT_EQ(run_ctl({"clean", "--yes"}).exit_status, 0);
    EXPECT_FALSE(find_mount_mutex());
}

TEST_F(CtlLocks, OtherSemaphoresAreNoLocks)
{
    const int other = semget(0x4711, 3, IPC_CREAT | 0644);       // all 0
    const int private_set = semget(0x4712, 3, IPC_CREAT | 0600); // of another mode
    const int small = semget(0x4713, 2, IPC_CREAT | 0644);
    for (const int set : {other, private_set, small})
        ASSERT_NE(set, -1);
    semctl(private_set, 1, SETVAL, 10000);
    semctl(private_set, 2, SETVAL, 1);
    EXPECT_THAT(find_view_locks(), SizeIs(0));
    EXPECT_EQ(run_ctl({"clean", "--yes"}).output, "");
    for (const int set : {other, private_set, small})
        EXPECT_EQ(semctl(set, 0, IPC_RMID), 0);
}

TEST_F(CtlLocks, SetOfAnotherProgramWithTheMountLocksKeyIsReported)
{
    ChildProcess killed = start_caller_in_helper();
    const key_t key = find_mount_mutex()->key;
    killed.kill();
    killed.wait();
    run_ctl({"clean", "--yes"});
    const int set = semget(key, 2, IPC_CREAT | 0644);
    EXPECT_THAT(finding_ids(status_of_host()), testing::ElementsAre("mount_mutex_unreadable"));
    EXPECT_EQ(run_ctl({"clean", "--yes"}).exit_status, 1);
    EXPECT_EQ(semctl(set, 0, IPC_RMID), 0);
}

} // namespace
