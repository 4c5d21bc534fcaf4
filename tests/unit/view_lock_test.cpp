#include "view_lock_test.h"
#include "memory_shortage.h"
#include "record_view.h"

#include <ace/ACE.h>
#include <ace/Process_Mutex.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <optional>

namespace
{

using namespace view_lock;

class ViewLock : public ViewLockTest
{
protected:
    void use_handle_with_id()
    {
        handle = make_handle(IXFS_FLAG_VIEW_ID);
        view = _ixfs_view_create(handle.get());
    }
};

TEST_F(ViewLock, FirstAttemptWins)
{
    EXPECT_EQ(lock(), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy70");
    EXPECT_NE(view->lock, nullptr);
    EXPECT_TRUE(view->lock_held);
    const std::string name = mutex + "0";
    EXPECT_EQ(log.take(), (naming_lines + Lines{trying_line(name), won_line(name)}));
}

TEST_F(ViewLock, ViewIdFlagPutsTheIdIntoTheBaseName)
{
    use_handle_with_id();
    EXPECT_EQ(lock(), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy7_17000000000");
    const std::string name = "Global\\EGR_1700000000__vv_esx-proxy7_1700000000_0";
    EXPECT_EQ(log.take(),
              (Lines{host_line("esx-proxy7"), base_name_line("_vv_esx-proxy7_1700000000"),
                     trying_line(name), won_line(name)}));
}

TEST_F(ViewLock, IdMayBeAnyLong)
{
    use_handle_with_id();
    EXPECT_EQ(_ixfs_view_lock(handle.get(), view, LONG_MIN, base_name, sizeof(base_name)), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy7_-92233720368547758080");
    EXPECT_EQ(log.take().back(),
              won_line("Global\\EGR_-9223372036854775808__vv_esx-proxy7_-9223372036854775808_0"));
}

TEST_F(ViewLock, KernelLockIsForAllToReadAndTheOwnerToChange)
{
    EXPECT_EQ(lock(), 1);
    const std::vector<SemaphoreSet> sets = semaphore_sets();
    ASSERT_EQ(sets.size(), 1);
    EXPECT_EQ(sets[0].permissions, 0644);
}

TEST_F(ViewLock, ThirdAttemptWinsAfterTwoFailed)
{
    auto tries = fail_tries(2, EBUSY);
    EXPECT_EQ(lock(), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy72");
    EXPECT_EQ(log.take(), (naming_lines + Lines{trying_line(mutex + "0"), trying_line(mutex + "1"),
                                                trying_line(mutex + "2"), won_line(mutex + "2")}));
    EXPECT_EQ(semaphore_sets().size(), 1) << "locks that were not won are gone";
}

TEST_F(ViewLock, OnlyABusyLockIsNoWarning)
{
    auto tries = fail_tries(1, EACCES);
    EXPECT_EQ(lock(), 1);
    EXPECT_EQ(log.take(), (naming_lines + Lines{trying_line(mutex + "0"), lost_line(13),
                                                trying_line(mutex + "1"), won_line(mutex + "1")}));
}

TEST_F(ViewLock, FiftyAttemptsAreMadeAndNoMore)
{
    int removed = 0;
    auto tries = fail_tries(interpose::always, EBUSY);
    auto removals = interpose::on_semctl([&](int, int, int command, void*) {
        removed += command == IPC_RMID;
        return std::optional<int>();
    });
    EXPECT_EQ(lock(), 0);
    EXPECT_STREQ(base_name, "_vv_esx-proxy7");
    EXPECT_EQ(view->lock, nullptr);
    EXPECT_FALSE(view->lock_held);
    EXPECT_EQ(removed, 50);
    Lines expected = naming_lines;
    for (int attempt = 0; attempt < 50; ++attempt)
        expected.push_back(trying_line(mutex + std::to_string(attempt)));
    expected.push_back({IXFS_LOG_ERR, lock_tag,
                        "ERR - Exceeded retry limit, unable to get the mutex: " + mutex + "49\n"});
    EXPECT_EQ(log.take(), expected);
}

TEST_F(ViewLock, LastAttemptMayWin)
{
    auto tries = fail_tries(49, EBUSY);
    EXPECT_EQ(lock(), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy749");
}

TEST_F(ViewLock, LockThatCannotBeOpenedLosesItsAttempt)
{
    auto semget = interpose::on_semget.fails(ENOSPC, 1, 1);
    EXPECT_EQ(lock(), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy71");
    EXPECT_EQ(log.take(), (naming_lines + Lines{trying_line(mutex + "0"), lost_line(28),
                                                trying_line(mutex + "1"), won_line(mutex + "1")}));
}

TEST_F(ViewLock, LockThatNoCallReachesLosesEachAttempt)
{
    for (const int error : {EBUSY, EACCES}) {
        {
            const auto semop = interpose::on_semop.fails(error);
            EXPECT_EQ(lock(), 0);
        }
        EXPECT_EQ(view->lock, nullptr);
        EXPECT_EQ(log.with_message("INF - Trying to create mutex: " + mutex + "49\n").size(), 1U);
        EXPECT_EQ(log.with_message(lost_line(error).message).size(), error == EBUSY ? 0U : 50U);
        EXPECT_EQ(log.lines().back().message,
                  "ERR - Exceeded retry limit, unable to get the mutex: " + mutex + "49\n");
        EXPECT_EQ(semaphore_sets().size(), 0U);
        log.take();
    }
}

TEST_F(ViewLock, UnknownHostNameFails)
{
    host_name.reset();
    auto uname = interpose::on_uname.fails(EFAULT);
    EXPECT_EQ(lock(), 0);
    EXPECT_STREQ(base_name, "unset");
    EXPECT_EQ(view->lock, nullptr);
    EXPECT_EQ(log.take(),
              (Lines{{IXFS_LOG_ERR, lock_tag, "ERR - ACE_OS::hostname() failed, error = 14\n"}}));
}

#ifndef IXFS_SANITIZER_DEFINES_NEW
TEST_F(ViewLock, LockForWhichMemoryIsShortFailsAtOnce)
{
    {
        const MemoryShortage no_object(sizeof(ACE_Process_Mutex));
        EXPECT_EQ(lock(), 0);
        EXPECT_EQ(no_object.hits(), 1);
    }
    EXPECT_EQ(view->lock, nullptr);
    EXPECT_EQ(log.take(),
              (Lines{host_line("esx-proxy7"),
                     base_name_line("_vv_esx-proxy7"),
                     trying_line(mutex + "0"),
                     {IXFS_LOG_ERR, lock_tag,
                      "ERR - Initialization failed for ACE_Process_Mutex, error = 12\n"}}));
}
#endif

TEST_F(ViewLock, LockThatIsSetAlreadyCountsAsWonAtAttempt0)
{
    EXPECT_EQ(lock(), 1);
    view->lock_held = false;
    ACE_Process_Mutex* const first = view->lock;
    log.take();

    auto opened = interpose::on_semget.watch();
    EXPECT_EQ(lock(), 1);
    EXPECT_EQ(opened.calls(), 0);
    EXPECT_EQ(view->lock, first);
    EXPECT_TRUE(view->lock_held);
    EXPECT_STREQ(base_name, "_vv_esx-proxy70");
    EXPECT_EQ(log.take(), (naming_lines + Lines{won_line("")}));
}

TEST_F(ViewLock, FailureLeavesTheLastStatusOfTheHandleAlone)
{
    _ixfs_no_mount(handle.get(), EC_HELPER_FAILED);
    auto tries = fail_tries(interpose::always, EBUSY);
    EXPECT_EQ(lock(), 0);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_HELPER_FAILED);
}

// ---- The mount mutex ----------------------------------------------------------------------------

// On a host called "vm", the checksum of this id's first name is that of the mount mutex's.
TEST_F(ViewLock, NameWithTheKeyOfTheMountMutexLosesItsAttemptUnopened)
{
    constexpr long colliding_id = 14'206'992'411;
    const std::string name = "Global\\EGR_14206992411__vv_vm_";
    const key_t key = static_cast<key_t>(ACE::crc32("Global\\_IXFS_MOUNT_MUTEX_"));
    ASSERT_EQ(static_cast<key_t>(ACE::crc32((name + "0").c_str())), key);
    host_name.reset();
    const auto vm = interpose::on_uname([](utsname* names) {
        std::strcpy(names->nodename, "vm");
        return std::optional<int>(0);
    });
    bool looked_for = false;
    const auto semget = interpose::on_semget([&](key_t wanted, int, int) {
        looked_for |= wanted == key;
        return std::optional<int>();
    });
    EXPECT_EQ(_ixfs_view_lock(handle.get(), view, colliding_id, base_name, sizeof(base_name)), 1);
    EXPECT_STREQ(base_name, "_vv_vm1");
    EXPECT_EQ(log.take(), (Lines{host_line("vm"), base_name_line("_vv_vm"), trying_line(name + "0"),
                                 trying_line(name + "1"), won_line(name + "1")}));
    EXPECT_FALSE(looked_for);
    EXPECT_EQ(semaphore_sets().size(), 1U);
}

// The checksum of this id's first name on a host called "usdo" is 0, and that key names no set: the
// kernel makes a new one for each who asks.
TEST_F(ViewLock, NameWithTheKeyThatNamesNoSetLosesItsAttempt)
{
    constexpr long id_of_key_0 = 19'033;
    const std::string name = "Global\\EGR_19033__vv_usdo_";
    ASSERT_EQ(ACE::crc32((name + "0").c_str()), static_cast<unsigned int>(IPC_PRIVATE));
    host_name.reset();
    const auto usdo = interpose::on_uname([](utsname* names) {
        std::strcpy(names->nodename, "usdo");
        return std::optional<int>(0);
    });
    EXPECT_EQ(_ixfs_view_lock(handle.get(), view, id_of_key_0, base_name, sizeof(base_name)), 1);
    EXPECT_EQ(log.take(),
              (Lines{host_line("usdo"), base_name_line("_vv_usdo"), trying_line(name + "0"),
                     lost_line(EINVAL), trying_line(name + "1"), won_line(name + "1")}));
    EXPECT_EQ(semaphore_sets().size(), 1U);
}

// ---- Small buffers ------------------------------------------------------------------------------

TEST_F(ViewLock, BaseNameIsCutToItsBuffer)
{
    std::memset(base_name, 'x', sizeof(base_name));
    EXPECT_EQ(lock(view, 5), 1);
    EXPECT_STREQ(base_name, "_vv_");
    EXPECT_EQ(base_name[5], 'x') << "what lies behind the buffer stays";
    const std::string name = "Global\\EGR_1700000000__vv__0";
    EXPECT_EQ(log.take(), (Lines{host_line("esx-proxy7"), base_name_line("_vv_"), trying_line(name),
                                 won_line(name)}));
}

TEST_F(ViewLock, BaseNameWithAnIdIsCutToItsBuffer)
{
    use_handle_with_id();
    std::memset(base_name, 'x', sizeof(base_name));
    EXPECT_EQ(lock(view, sizeof("_vv_esx-proxy7_17")), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy7_17");
    EXPECT_EQ(base_name[sizeof("_vv_esx-proxy7_17")], 'x');
}

TEST_F(ViewLock, AttemptNumberIsAppendedAsFarAsTheBufferAllows)
{
    auto tries = fail_tries(12, EBUSY);
    EXPECT_EQ(lock(view, sizeof("_vv_esx-proxy7") + 1), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy71") << "of 12";
}

TEST_F(ViewLock, BaseNameThatJustFitsLeavesNoRoomForTheNumber)
{
    EXPECT_EQ(lock(view, sizeof("_vv_esx-proxy7")), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy7");
}

TEST_F(ViewLock, BufferOfOneByteGetsAnEmptyName)
{
    EXPECT_EQ(lock(view, 1), 1);
    EXPECT_STREQ(base_name, "");
    EXPECT_EQ(base_name[1], 'n');
}

TEST_F(ViewLock, BufferOfSize0IsNotWritten)
{
    EXPECT_EQ(lock(view, 0), 1);
    EXPECT_STREQ(base_name, "unset");
}

} // namespace
