// Signals and the host-wide locks: none gets in while a lock is opened or closed, any may while a
// lock is waited for, and the caller's mask is as it was afterwards.
#include "mount_fixture.h"

#include <ace/Process_Mutex.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <string>
#include <vector>

namespace
{

using Calls = std::vector<std::string>;
using Signals = std::vector<int>;

Signals blocked_signals()
{
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    Signals blocked;
    for (int signal = 1; signal < NSIG; ++signal) {
        if (sigismember(&mask, signal) == 1)
            blocked.push_back(signal);
    }
    return blocked;
}

// Sets the calling thread's mask for as long as the object lives.
class ScopedMask
{
public:
    explicit ScopedMask(const sigset_t& mask) { pthread_sigmask(SIG_SETMASK, &mask, &before_); }
    ~ScopedMask() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    ScopedMask(const ScopedMask&) = delete;
    ScopedMask& operator=(const ScopedMask&) = delete;

private:
    sigset_t before_{};
};

// All that a thread can block.
Signals all_signals()
{
    sigset_t all;
    sigfillset(&all);
    const ScopedMask mask(all);
    return blocked_signals();
}

sigset_t callers_mask()
{
    sigset_t mask;
    sigemptyset(&mask);
    sigaddset(&mask, SIGUSR2);
    return mask;
}

// Notes under which mask the calls on locks are made, and fails those that it is told to. Holds
// on_semget, on_semop and on_semctl.
class WatchedLocks
{
public:
    Calls guarded;   // with all signals blocked
    Calls unguarded; // of those that a signal could end, but for waits and releases
    std::vector<Signals> waits;
    int semget_error = 0; // where not 0
    int semop_error = 0;  // likewise

private:
    static constexpr unsigned short lock_semaphore = 2; // of a set's three

    void note(const std::string& call, bool may_be_interrupted)
    {
        if (blocked_signals() == all_)
            guarded.push_back(call);
        else if (may_be_interrupted)
            unguarded.push_back(call);
    }

    static std::optional<int> answer(int error)
    {
        if (error == 0)
            return std::nullopt;
        errno = error;
        return -1;
    }

    const Signals all_ = all_signals();
    decltype(interpose::on_semget)::Hook semget_ = interpose::on_semget([this](key_t, int, int) {
        note("semget", false);
        return answer(semget_error);
    });
    decltype(interpose::on_semop)::Hook semop_ =
        interpose::on_semop([this](int, const sembuf* operations, std::size_t count) {
            const bool is_of_lock = count == 1 && operations[0].sem_num == lock_semaphore;
            if (!is_of_lock)
                note("semop", true);
            else if (operations[0].sem_op < 0)
                waits.push_back(blocked_signals());
            return answer(semop_error);
        });
    decltype(interpose::on_semctl)::Hook semctl_ =
        interpose::on_semctl([this](int, int, int command, void*) {
            if (command == SETVAL)
                note("semctl", false);
            return std::optional<int>();
        });
};

class SignalMask : public MountTest
{
protected:
    void TearDown() override
    {
        EXPECT_EQ(blocked_signals(), Signals{SIGUSR2});
        MountTest::TearDown();
        EXPECT_EQ(blocked_signals(), Signals{SIGUSR2});
    }

    int recreate_context()
    {
        return ixfs_recreate_minimal_context(handle.get(), mount_cred, unmount_cred, port, server,
                                             60, "/m/x");
    }

    const ScopedMask mask{callers_mask()};
};

TEST_F(SignalMask, HoldsAllBackWhileAMountOpensTheMutexAndNoneWhileItWaits)
{
    helper.answers({mounts_image()});
    const WatchedLocks locks;
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(locks.unguarded, Calls{});
    EXPECT_FALSE(locks.guarded.empty());
    EXPECT_EQ(locks.waits, std::vector<Signals>{Signals{SIGUSR2}});
}

TEST_F(SignalMask, HoldsAllBackWhileAMountThatFailsDeletesTheMutex)
{
    helper.answers({{"EXIT_STATUS=3"}});
    const WatchedLocks locks;
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(locks.unguarded, Calls{});
    EXPECT_FALSE(locks.guarded.empty());
}

TEST_F(SignalMask, HoldsAllBackWhileAnUnmountDeletesTheMutexAndNoneWhileItWaits)
{
    given_mount(mounts_image());
    const WatchedLocks locks;
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(locks.unguarded, Calls{});
    EXPECT_FALSE(locks.guarded.empty());
    EXPECT_EQ(locks.waits, std::vector<Signals>{Signals{SIGUSR2}});
}

TEST_F(SignalMask, HoldsAllBackWhileAContextOpensAndClosesTheMutex)
{
    const WatchedLocks locks;
    EXPECT_EQ(recreate_context(), 0);
    const std::size_t of_opening = locks.guarded.size();
    EXPECT_GT(of_opening, 0U);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_INVALID_PARAMETER) << "it has no mount point";
    EXPECT_GT(locks.guarded.size(), of_opening);
    EXPECT_EQ(locks.unguarded, Calls{});
    EXPECT_EQ(locks.waits, std::vector<Signals>{Signals{SIGUSR2}});
}

TEST_F(SignalMask, IsTheCallersAfterAMutexThatCannotBeOpened)
{
    WatchedLocks locks;
    for (const int error : {ENOSPC, EACCES}) {
        locks.semget_error = error;
        EXPECT_EQ(mount(), nullptr);
        EXPECT_EQ(recreate_context(), -1);
        EXPECT_EQ(blocked_signals(), Signals{SIGUSR2});
    }
    EXPECT_EQ(locks.unguarded, Calls{});
    EXPECT_FALSE(locks.guarded.empty());
}

TEST_F(SignalMask, IsTheCallersAfterAMutexThatNoCallReaches)
{
    WatchedLocks locks;
    locks.semop_error = EACCES;
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(recreate_context(), -1);
    EXPECT_EQ(blocked_signals(), Signals{SIGUSR2});
    EXPECT_EQ(locks.unguarded, Calls{});
}

#ifndef IXFS_SANITIZER_DEFINES_NEW
TEST_F(SignalMask, IsTheCallersAfterAMutexForWhichMemoryIsShort)
{
    {
        bool refused = false;
        const auto no_memory = interpose::on_allocation([&](std::size_t size) {
            if (size != sizeof(ACE_Process_Mutex))
                return std::optional<void*>();
            refused = true;
            errno = ENOMEM;
            return std::optional<void*>(nullptr);
        });
        EXPECT_EQ(mount(), nullptr);
        EXPECT_TRUE(refused);
    }
    EXPECT_EQ(blocked_signals(), Signals{SIGUSR2});
}
#endif

TEST_F(SignalMask, HoldsAllBackWhileAViewsLockIsOpenedAndNoneWhileItIsTried)
{
    char base_name[1024];
    _ixfs_view_t* const view = _ixfs_view_create(handle.get());
    const WatchedLocks locks;
    EXPECT_EQ(_ixfs_view_lock(handle.get(), view, 7, base_name, sizeof(base_name)), 1);
    EXPECT_EQ(locks.unguarded, Calls{});
    EXPECT_FALSE(locks.guarded.empty());
    EXPECT_EQ(locks.waits, std::vector<Signals>{Signals{SIGUSR2}});
}

TEST_F(SignalMask, IsTheCallersAfterAViewsLockThatCannotBeOpened)
{
    char base_name[1024];
    _ixfs_view_t* const view = _ixfs_view_create(handle.get());
    WatchedLocks locks;
    locks.semget_error = ENOSPC;
    EXPECT_EQ(_ixfs_view_lock(handle.get(), view, 7, base_name, sizeof(base_name)), 0);
    EXPECT_EQ(blocked_signals(), Signals{SIGUSR2});
    EXPECT_EQ(locks.unguarded, Calls{});
    EXPECT_FALSE(locks.guarded.empty());
}

} // namespace
