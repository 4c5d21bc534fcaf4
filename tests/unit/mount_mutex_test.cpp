// The host-wide mutex: held while the helper runs, and what becomes of a call that does not get it.
#include "memory_shortage.h"
#include "mount_fixture.h"
#include "process_state.h"
#include "record_view.h"

#include <ace/Process_Mutex.h>

#include <atomic>
#include <chrono>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace
{

constexpr char mutex_name[] = "Global\\_IXFS_MOUNT_MUTEX_";

// Whether nobody has the mutex now.
bool mutex_is_free()
{
    ACE_Process_Mutex mutex(mutex_name, nullptr, 0644);
    return mutex.tryacquire() == 0 && mutex.release() == 0;
}

// What an operation does to the lock in the set of three semaphores that ACE makes a mutex of.
constexpr unsigned short lock_semaphore = 2;

bool changes_lock(const sembuf* operations, size_t count, short by)
{
    return count == 1 && operations[0].sem_num == lock_semaphore && operations[0].sem_op == by;
}

// The guard of the set, which is taken by who opens it or deletes it.
constexpr unsigned short guard_semaphore = 0;

bool takes_guard(const sembuf* operations, size_t count)
{
    return count == 2 && operations[0].sem_num == guard_semaphore && operations[0].sem_op == 0 &&
           operations[1].sem_num == guard_semaphore && operations[1].sem_op == 1;
}

// Lets no set be deleted, as if another user had made it.
auto refused_deletions()
{
    return interpose::on_semctl([](int, int, int command, void*) -> std::optional<int> {
        if (command != IPC_RMID)
            return std::nullopt;
        errno = EPERM;
        return -1;
    });
}

// Lets the first `count` waits for the mutex fail.
auto failing_waits(int error, int count = interpose::always)
{
    return interpose::on_semop(
        [error, count](int, const sembuf* operations, size_t size) mutable -> std::optional<int> {
            if (!changes_lock(operations, size, -1) || count-- <= 0)
                return std::nullopt;
            errno = error;
            return -1;
        });
}

class MountMutex : public MountTest
{
protected:
    int recreate_context()
    {
        return ixfs_recreate_minimal_context(handle.get(), mount_cred, unmount_cred, port, server,
                                             60, "/m/x");
    }
};

TEST_F(MountMutex, IsHeldWhileTheHelperRunsAndFreeInBetween)
{
    std::vector<bool> free;
    auto popen = interpose::on_popen([&](const char*, const char*) -> std::optional<FILE*> {
        free.push_back(mutex_is_free());
        return std::nullopt;
    });
    helper.answers({mounts_image()});
    ASSERT_NE(mount(), nullptr);
    free.push_back(mutex_is_free());
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(free, (std::vector<bool>{false, true, false}));
}

TEST_F(MountMutex, MayBeChangedByItsOwnerAlone)
{
    helper.answers({mounts_image()});
    ASSERT_NE(mount(), nullptr);
    ASSERT_EQ(semaphore_sets().size(), 1U);
    EXPECT_EQ(semaphore_sets()[0].permissions, 0644U);
}

TEST_F(MountMutex, OfAnotherUserIsDeletedAndMadeAnew)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root deletes what others own";
    int looks = 0;
    int deletions = 0;
    {
        auto semctl =
            interpose::on_semctl([&](int, int, int command, void* result) -> std::optional<int> {
                deletions += command == IPC_RMID;
                if (command != IPC_STAT || ++looks > 1)
                    return std::nullopt;
                static_cast<semid_ds*>(result)->sem_perm.cuid = 4711;
                return 0;
            });
        helper.answers({mounts_image()});
        EXPECT_NE(mount(), nullptr);
        EXPECT_EQ(deletions, 1);
        EXPECT_EQ(looks, 2);
    }
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
}

// As in a namespace whose root may not touch what the host's users own.
TEST_F(MountMutex, OfAnotherUserThatCannotBeDeletedIsNotHad)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root deletes what others own";
    for (const bool is_known : {true, false}) {
        auto semctl =
            interpose::on_semctl([&](int, int, int command, void* result) -> std::optional<int> {
                if (command == IPC_STAT && is_known) {
                    static_cast<semid_ds*>(result)->sem_perm.cuid = 4711;
                    return 0;
                }
                if (command != IPC_STAT && command != IPC_RMID)
                    return std::nullopt;
                errno = EPERM;
                return -1;
            });
        log.take();
        EXPECT_EQ(mount(), nullptr);
        EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
        EXPECT_EQ(log.lines().back(), mount_says.error("ERR - unable to obtain mount mutex"));
        EXPECT_EQ(helper.runs().size(), 0U);
    }
    for (const SemaphoreSet& set : semaphore_sets())
        semctl(set.id, 0, IPC_RMID);
}

// What happens to the lock, in order.
class LockEvents
{
public:
    std::vector<std::string> events;

private:
    decltype(interpose::on_semop)::Hook semop_ = interpose::on_semop(
        [this](int, const sembuf* operations, size_t count) -> std::optional<int> {
            if (changes_lock(operations, count, -1))
                events.emplace_back("acquire");
            if (changes_lock(operations, count, 1))
                events.emplace_back("release");
            return std::nullopt;
        });
    decltype(interpose::on_semctl)::Hook semctl_ =
        interpose::on_semctl([this](int, int, int command, void*) -> std::optional<int> {
            if (command == IPC_RMID)
                events.emplace_back("delete");
            return std::nullopt;
        });
};

TEST_F(MountMutex, IsReleasedByAMountThatSucceeds)
{
    helper.answers({mounts_image()});
    const LockEvents lock;
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(lock.events, (std::vector<std::string>{"acquire", "release"}));
}

TEST_F(MountMutex, IsDeletedBeforeItIsReleasedByAMountThatFails)
{
    const LockEvents lock;
    ASSERT_EQ(mount(), nullptr);
    ASSERT_GE(lock.events.size(), 2U);
    EXPECT_EQ(lock.events[0], "acquire");
    EXPECT_EQ(lock.events[1], "delete");
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(MountMutex, IsDeletedBeforeItIsReleasedByAnUnmount)
{
    given_mount(mounts_image());
    const LockEvents lock;
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    ASSERT_GE(lock.events.size(), 2U);
    EXPECT_EQ(lock.events[0], "acquire");
    EXPECT_EQ(lock.events[1], "delete");
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(MountMutex, IsReleasedByAMinimalContext)
{
    const LockEvents lock;
    ASSERT_EQ(recreate_context(), 0);
    EXPECT_EQ(lock.events, (std::vector<std::string>{"acquire", "release"}));
    EXPECT_FALSE(record_view::mount(handle.get()).holds_mutex);
    EXPECT_EQ(semaphore_sets().size(), 1U);
}

// Not obtained

TEST_F(MountMutex, NotObtainedFailsTheMount)
{
    for (const int error : {EACCES, ENOMEM}) {
        const auto waits = failing_waits(error);
        EXPECT_EQ(mount(), nullptr);
        EXPECT_EQ(log.take(), (Lines{mount_says.info("INF - waiting for mount mutex..."),
                                     mount_says.error("ERR - unable to obtain mount mutex")}));
        EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
        EXPECT_FALSE(record_view::has_mount(handle.get()));
        EXPECT_EQ(semaphore_sets().size(), 0U);
    }
    EXPECT_EQ(helper.runs().size(), 0U);
}

TEST_F(MountMutex, ThatNoCallReachesFailsTheMount)
{
    for (const int error : {EACCES, ENOSPC, EBUSY}) {
        const auto semop = interpose::on_semop.fails(error);
        EXPECT_EQ(mount(), nullptr);
        EXPECT_EQ(log.take(), (Lines{mount_says.info("INF - waiting for mount mutex..."),
                                     mount_says.error("ERR - unable to obtain mount mutex")}));
        EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
        EXPECT_FALSE(record_view::has_mount(handle.get()));
    }
}

TEST_F(MountMutex, ThatCannotBeOpenedFailsTheMount)
{
    const auto semget = interpose::on_semget.fails(ENOSPC);
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(log.lines(), (Lines{mount_says.info("INF - waiting for mount mutex..."),
                                  mount_says.error("ERR - unable to obtain mount mutex")}));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
}

TEST_F(MountMutex, ThatCannotBeOpenedIsNotTriedAgain)
{
    const auto semget = interpose::on_semget.fails(ENOSPC);
    EXPECT_EQ(mount(), nullptr);
    EXPECT_LT(semget.calls(), 10);
}

TEST_F(MountMutex, StaysOpenWhenASignalInterruptsTheWait)
{
    auto semget = std::make_optional(interpose::on_semget.watch());
    ASSERT_EQ(recreate_context(), 0);
    const int calls = semget->calls();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_INVALID_PARAMETER) << "it has no mount point";
    semget.reset();

    semget.emplace(interpose::on_semget.watch());
    const auto waits = failing_waits(EINTR, 3);
    ASSERT_EQ(recreate_context(), 0);
    EXPECT_EQ(semget->calls(), calls);
}

// Between the look at a set that nobody has open and the taking of its guard.
TEST_F(MountMutex, TakenByARivalWhileItIsMadeReadyIsLeftToTheRival)
{
    std::unique_ptr<ACE_Process_Mutex> rival;
    std::vector<std::string> events;
    const auto semop =
        interpose::on_semop([&](int, const sembuf* operations, size_t count) -> std::optional<int> {
            if (takes_guard(operations, count) && rival == nullptr) {
                rival = std::make_unique<ACE_Process_Mutex>(mutex_name, nullptr, 0644);
                EXPECT_EQ(rival->tryacquire(), 0);
            }
            if (changes_lock(operations, count, -1)) {
                events.emplace_back(mutex_is_free() ? "free" : "held");
                EXPECT_EQ(rival->release(), 0);
            }
            return std::nullopt;
        });
    helper.answers({mounts_image()});
    EXPECT_NE(mount(), nullptr);
    EXPECT_EQ(events, std::vector<std::string>{"held"});
}

// The guard is waited for by the opening, and by the unmount that deletes the mutex.
TEST_F(MountMutex, OpeningAndDeletionGoOnAfterAnInterruption)
{
    for (const int interrupted : {1, 2}) {
        int waits = 0;
        const auto semop = interpose::on_semop(
            [&](int, const sembuf* operations, size_t count) -> std::optional<int> {
                if (!takes_guard(operations, count) || ++waits != interrupted)
                    return std::nullopt;
                errno = EINTR;
                return -1;
            });
        given_mount(mounts_image());
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
        EXPECT_GT(waits, interrupted);
        EXPECT_EQ(semaphore_sets().size(), 0U);
    }
}

// As a process that is stopped and continued gets it. A closing that gives up leaves the mutex in
// use until the process ends.
TEST_F(MountMutex, ClosingGoesOnAfterAnInterruption)
{
    ASSERT_EQ(recreate_context(), 0);
    int waits = 0;
    const auto semop =
        interpose::on_semop([&](int, const sembuf* operations, size_t) -> std::optional<int> {
            const bool waits_for_guard =
                operations[0].sem_num == guard_semaphore && operations[0].sem_op == 0;
            if (!waits_for_guard || ++waits != 1)
                return std::nullopt;
            errno = EINTR;
            return -1;
        });
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_INVALID_PARAMETER) << "it has no mount point";
    EXPECT_GT(waits, 0);
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(MountMutex, ThatCanNeitherBeGuardedNorDeletedIsFreed)
{
    given_mount(mounts_image());
    int guards_left = 0;
    {
        const auto semctl = refused_deletions();
        const auto semop = interpose::on_semop(
            [&](int, const sembuf* operations, size_t count) -> std::optional<int> {
                const bool leaves = count == 1 && operations[0].sem_num == guard_semaphore &&
                                    operations[0].sem_op == -1;
                guards_left += leaves;
                if (!leaves && !takes_guard(operations, count))
                    return std::nullopt;
                errno = EACCES;
                return -1;
            });
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    }
    EXPECT_EQ(guards_left, 0);
    EXPECT_TRUE(mutex_is_free());
    EXPECT_EQ(semctl(semaphore_sets().at(0).id, 0, IPC_RMID), 0);
}

TEST_F(MountMutex, ThatCannotBeDeletedIsFreedAndItsGuardLeft)
{
    given_mount(mounts_image());
    {
        const auto semctl = refused_deletions();
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    }
    const int set = semaphore_sets().at(0).id;
    EXPECT_EQ(semctl(set, guard_semaphore, GETVAL), 0) << "else nobody could open it any more";
    EXPECT_TRUE(mutex_is_free());
    EXPECT_EQ(semaphore_sets().size(), 0U) << "the unmount closed it, so the next user is the last";
}

TEST_F(MountMutex, NotObtainedFailsTheMinimalContext)
{
    const auto waits = failing_waits(EACCES);
    EXPECT_EQ(recreate_context(), -1);
    EXPECT_EQ(log.lines(), (Lines{context_says.info("INF - waiting for mount mutex..."),
                                  context_says.error("ERR - unable to obtain mount mutex")}));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
    EXPECT_FALSE(record_view::has_mount(handle.get()));
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(MountMutex, NotObtainedFailsTheUnmountWhichUnmountsLocally)
{
    given_mount(mounts_image());
    {
        const auto waits = failing_waits(EACCES);
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_SYSTEM_ERROR);
    }
    Lines expected = lines_before_unmount_command();
    expected.pop_back();
    EXPECT_EQ(
        log.lines_here(),
        expected + unmount_says.error("ERR - unable to obtain mount mutex") +
            local_unmount_says.info("INF - attempting to umount -f (" + image.path() + ")") +
            local_unmount_says.error("ERR - umount failed for " + image.path() + ", errno = 22") +
            found_folder_line(image / "backups") + removed_folder_line(image / "backups") +
            removed_folder_line(image.path()));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
    EXPECT_FALSE(record_view::has_mount(handle.get()));
    EXPECT_EQ(helper.runs().size(), 1U);
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

// Deleted by others

TEST_F(MountMutex, DeletedBeforeOrWhileWaitingIsMadeAgainWithoutAWord)
{
    for (const int error : {EIDRM, EINVAL}) {
        const auto waits = failing_waits(error, 3);
        helper.answers({mounts_image()});
        ASSERT_NE(mount(), nullptr);
        EXPECT_EQ(log.with_tag("ixfs_mount()").at(0),
                  mount_says.info("INF - waiting for mount mutex..."));
        EXPECT_EQ(log.with_tag("ixfs_mount()").at(1).message,
                  "INF - Create mount dir /usr/varnis/var/ixfs/media1 already exists.\n");
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
        log.take();
    }
}

TEST_F(MountMutex, DeletedManyTimesIsStillMadeAgain)
{
    const auto waits = failing_waits(EIDRM, 250);
    helper.answers({mounts_image()});
    EXPECT_NE(mount(), nullptr);
    EXPECT_EQ(semaphore_sets().size(), 1U);
}

TEST_F(MountMutex, DeletedEndlesslyFailsTheMountInTheEnd)
{
    int waits = 0;
    const auto deleted =
        interpose::on_semop([&](int, const sembuf* operations, size_t size) -> std::optional<int> {
            if (!changes_lock(operations, size, -1))
                return std::nullopt;
            ++waits;
            errno = EINVAL;
            return -1;
        });
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(waits, 100'001);
    EXPECT_EQ(log.take(), (Lines{mount_says.info("INF - waiting for mount mutex..."),
                                 mount_says.error("ERR - unable to obtain mount mutex")}));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
}

TEST_F(MountMutex, DeletedWhileTheMountLastsIsMadeAgainByTheUnmount)
{
    given_mount(mounts_image());
    ASSERT_EQ(semctl(semaphore_sets().at(0).id, 0, IPC_RMID), 0);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.lines_here(),
              lines_before_unmount_command() +
                  lines_of_run(unmount_says, unmount_command(), {"EXIT_STATUS=0"}));
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

// A set with too few semaphores is looked at again, as another user's would be deleted.
TEST_F(MountMutex, OfAnotherMakeThatGoesBetweenTwoLooksIsMadeAgain)
{
    const auto too_small = interpose::on_semget.fails(EINVAL, 1, 1);
    given_mount(mounts_image());
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

#ifndef IXFS_SANITIZER_DEFINES_NEW
TEST_F(MountMutex, DeletedAndNotMadeAgainForWantOfMemoryFailsTheUnmount)
{
    given_mount(mounts_image());
    ASSERT_EQ(semctl(semaphore_sets().at(0).id, 0, IPC_RMID), 0);
    {
        const MemoryShortage no_object(sizeof(ACE_Process_Mutex));
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_SYSTEM_ERROR);
        EXPECT_EQ(no_object.hits(), 1) << "it is not tried again";
    }
    EXPECT_EQ(log.with_message("ERR - unable to obtain mount mutex\n").size(), 1U);
    EXPECT_FALSE(record_view::has_mount(handle.get()));
    EXPECT_EQ(semaphore_sets().size(), 0U);
}
#endif

TEST_F(MountMutex, DeletedWhileAMinimalContextWaitsIsMadeAgain)
{
    const auto waits = failing_waits(EIDRM, 1);
    EXPECT_EQ(recreate_context(), 0);
    EXPECT_EQ(log.lines(), Lines{context_says.info("INF - waiting for mount mutex...")});
}

// Several at once

// The first helper run holds on until it is let go. Holds on_popen.
class HeldHelper
{
public:
    ~HeldHelper() { let_go(); }

    bool wait_until_running()
    {
        return running_.get_future().wait_for(std::chrono::seconds(30)) ==
               std::future_status::ready;
    }

    void let_go()
    {
        if (!let_go_.exchange(true))
            gate_.set_value();
    }

private:
    std::promise<void> running_;
    std::promise<void> gate_;
    std::atomic<bool> let_go_{false};
    std::atomic<int> runs_{0};
    decltype(interpose::on_popen)::Hook popen_ =
        interpose::on_popen([this](const char*, const char*) -> std::optional<FILE*> {
            if (++runs_ == 1) {
                running_.set_value();
                gate_.get_future().wait();
            }
            EXPECT_TRUE(let_go_) << "two helpers at a time";
            return std::nullopt;
        });
};

TEST_F(MountMutex, LetsAWaiterInAfterAMountThatFails)
{
    const Handle other = make_handle();
    helper.answers({{"EXIT_STATUS=3"}, mounts_image()});
    HeldHelper held;
    auto first = std::async(std::launch::async, [&] { return mount(); });
    ASSERT_TRUE(held.wait_until_running());
    auto second = std::async(std::launch::async, [&] {
        return ixfs_mount(other.get(), mount_cred, unmount_cred, port, "media2", 60, nullptr);
    });
    ASSERT_TRUE(log.wait_for("INF - waiting for mount mutex...\n", 2));
    held.let_go();

    EXPECT_EQ(first.get(), nullptr);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
    EXPECT_STREQ(second.get(), image.path().c_str());
}

TEST_F(MountMutex, LetsAWaiterInAfterAnUnmount)
{
    const Handle other = make_handle();
    given_mount(mounts_image(), {{"EXIT_STATUS=0"}, mounts_image()});
    HeldHelper held;
    auto first = std::async(std::launch::async, [&] { return ixfs_unmount(handle.get()); });
    ASSERT_TRUE(held.wait_until_running());
    auto second = std::async(std::launch::async, [&] {
        return ixfs_mount(other.get(), mount_cred, unmount_cred, port, "media2", 60, nullptr);
    });
    ASSERT_TRUE(log.wait_for("INF - waiting for mount mutex...\n"));
    held.let_go();

    EXPECT_EQ(first.get(), EC_OK);
    EXPECT_STREQ(second.get(), image.path().c_str());
}

TEST_F(MountMutex, MakesAMinimalContextWaitForAMountInProgress)
{
    const Handle other = make_handle();
    helper.answers({mounts_image()});
    HeldHelper held;
    auto mounting = std::async(std::launch::async, [&] {
        return ixfs_mount(other.get(), mount_cred, unmount_cred, port, "media2", 60, nullptr);
    });
    ASSERT_TRUE(held.wait_until_running());
    auto context = std::async(std::launch::async, [&] { return recreate_context(); });
    ASSERT_TRUE(log.wait_for("INF - waiting for mount mutex...\n", 2));
    for (int i = 0; i < 1000; ++i)
        std::this_thread::yield();
    EXPECT_EQ(context.wait_for(std::chrono::seconds(0)), std::future_status::timeout);
    held.let_go();

    EXPECT_NE(mounting.get(), nullptr);
    EXPECT_EQ(context.get(), 0);
}

} // namespace
