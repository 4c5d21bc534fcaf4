// Locks that another user made first, in ways that suit him.
#include "mount_mutex.h"

#include "process_mutex_set.h"
#include "process_state.h"

#include <ace/ACE.h>

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <ostream>
#include <sched.h>
#include <string>
#include <vector>

#include <sys/sem.h>
#include <sys/utsname.h>
#include <unistd.h>

namespace
{

constexpr char mount_mutex[] = "Global\\_IXFS_MOUNT_MUTEX_";
constexpr long view_id = 4711;

key_t key_of(const std::string& name)
{
    return static_cast<key_t>(ACE::crc32(name.c_str()));
}

// The lock of the first attempt for a view with that id.
std::string first_view_lock()
{
    utsname names{};
    uname(&names);
    return "Global\\EGR_" + std::to_string(view_id) + "__vv_" + names.nodename + "_0";
}

// A set as its maker leaves it.
struct ForeignSet {
    const char* name;
    int size;
    int mode;
    int guard;
    int users;
    int lock;
};

void PrintTo(const ForeignSet& set, std::ostream* stream)
{
    *stream << set.name;
}

constexpr ForeignSet foreign_sets[] = {
    {"IsNew", 3, 0666, 0, 0, 0},
    {"HasItsGuardTakenForGood", 3, 0666, 1, 10000, 1},
    {"LetsSeveralIn", 3, 0666, 0, 9000, 8},
    {"LetsNobodyIn", 3, 0666, 0, 9999, 0},
    {"CannotBeReadByOthers", 3, 0600, 0, 9000, 8},
    {"CannotBeReadByAnyone", 3, 0, 0, 0, 0},
    {"IsSmall", 1, 0666, 1, 0, 0},
    {"IsLarge", 250, 0666, 1, 10000, 8},
};

constexpr ForeignSet has_its_guard_taken = foreign_sets[1];

// Returns whether there was none before.
bool make(const ForeignSet& set, key_t key)
{
    const int id = semget(key, set.size, IPC_CREAT | IPC_EXCL | set.mode);
    if (id == -1)
        return false;
    const int values[] = {set.guard, set.users, set.lock};
    for (int i = 0; i < 3 && i < set.size; ++i)
        semctl(id, i, SETVAL, values[i]);
    return true;
}

class ForeignLock : public MountMutexTest
{
protected:
    void SetUp() override
    {
        if (!there_are_other_users())
            GTEST_SKIP() << "this namespace has one user alone: be root outside of it";
    }

    void make_as_other_user(const ForeignSet& set, const std::string& name) const
    {
        EXPECT_EQ(run([&](ChildProcess::Parent&) {
                      return become_other_user() && make(set, key_of(name)) ? 0 : 1;
                  }),
                  0);
    }

    void expect_processes_to_mount(int processes) const
    {
        std::vector<ChildProcess> children;
        for (int i = 0; i < processes; ++i)
            children.push_back(start(mount_and_unmount));
        for (ChildProcess& child : children)
            EXPECT_EQ(child.wait(), 0);
    }
};

class ForeignLockOfAnyKind : public ForeignLock, public testing::WithParamInterface<ForeignSet>
{
};

TEST_P(ForeignLockOfAnyKind, IsNotTheMountMutex)
{
    make_as_other_user(GetParam(), mount_mutex);
    expect_processes_to_mount(8);
    EXPECT_EQ(helper.runs(), 16);
}

TEST_P(ForeignLockOfAnyKind, GivesWayToOneOfRoot)
{
    make_as_other_user(GetParam(), mount_mutex);
    ChildProcess standing = start(mount_pause_and_unmount);
    standing.wait_for_pause();
    const auto sets = semaphore_sets();
    ASSERT_EQ(sets.size(), 1U);
    semid_ds status{};
    ASSERT_EQ(semctl(sets.front().id, 0, IPC_STAT, &status), 0);
    EXPECT_EQ(status.sem_perm.cuid, 0U);
    EXPECT_EQ(status.sem_perm.mode & 0777U, 0644U);
    standing.go_on();
    EXPECT_EQ(standing.wait(), 0);
}

TEST_P(ForeignLockOfAnyKind, ThatReplacesTheMountMutexDoesNotStopTheUnmount)
{
    ChildProcess standing = start(mount_pause_and_unmount);
    standing.wait_for_pause();
    delete_every_semaphore_set();
    make_as_other_user(GetParam(), mount_mutex);
    standing.go_on();
    EXPECT_EQ(standing.wait(), 0);
}

bool locks(const Handle& handle, const std::string& number)
{
    char base_name[1024] = "";
    const bool locked = _ixfs_view_lock(handle.get(), _ixfs_view_create(handle.get()), view_id,
                                        base_name, sizeof(base_name)) == 1;
    utsname names{};
    uname(&names);
    return locked && std::string("_vv_") + names.nodename + number == base_name;
}

TEST_P(ForeignLockOfAnyKind, IsNoViewsLock)
{
    make_as_other_user(GetParam(), first_view_lock());
    EXPECT_EQ(run([](ChildProcess::Parent&) {
                  const Handle handle = quiet_handle();
                  return locks(handle, "0") && locks(handle, "1") ? 0 : 1;
              }),
              0);
}

std::string name_of(const testing::TestParamInfo<ForeignSet>& info)
{
    return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Made, ForeignLockOfAnyKind, testing::ValuesIn(foreign_sets), name_of);

// Makes one more whenever there is none. One that is waited for would never let go.
int make_again_and_again(ChildProcess::Parent& /*parent*/)
{
    if (!become_other_user())
        return 1;
    for (;;) {
        make(has_its_guard_taken, key_of(mount_mutex));
        make(has_its_guard_taken, key_of(first_view_lock()));
    }
}

TEST_F(ForeignLock, MadeAgainAtOnceForEverStopsNobody)
{
    constexpr int processes = 6;
    constexpr int cycles = 100;
    ChildProcess attacker = start(make_again_and_again);
    look_until([] { return semaphore_sets().size() == 2; });
    std::vector<ChildProcess> children;
    for (int i = 0; i < processes; ++i) {
        children.push_back(start([](ChildProcess::Parent& parent) {
            int failures = 0;
            for (int cycle = 0; cycle < cycles; ++cycle) {
                failures += mount_and_unmount(parent);
                const Handle handle = quiet_handle();
                char base_name[1024];
                failures += _ixfs_view_lock(handle.get(), _ixfs_view_create(handle.get()), view_id,
                                            base_name, sizeof(base_name)) != 1;
            }
            return failures != 0 ? 1 : 0;
        }));
    }
    for (ChildProcess& child : children)
        EXPECT_EQ(child.wait(), 0);
    attacker.kill();
    EXPECT_EQ(attacker.wait(), -SIGKILL);
    EXPECT_EQ(helper.runs(), 2 * processes * cycles);
    delete_every_semaphore_set();
}

bool write_file(const char* path, const char* text)
{
    const int file = open(path, O_WRONLY | O_CLOEXEC);
    const auto size = static_cast<ssize_t>(std::strlen(text));
    const bool written = write(file, text, std::strlen(text)) == size;
    close(file);
    return written;
}

// Root of a user namespace has the number, but no power over what is outside.
bool become_root_of_a_namespace()
{
    return unshare(CLONE_NEWUSER) == 0 && write_file("/proc/self/uid_map", "0 0 1") &&
           geteuid() == 0;
}

int cannot_have_a_foreign_lock(ChildProcess::Parent& /*parent*/)
{
    if (!become_root_of_a_namespace())
        return 1;
    LogRecorder log;
    const Handle handle = make_handle();
    if (ixfs_mount(handle.get(), "mount-cred", "unmount-cred", 1, "media1", 0, nullptr) != nullptr)
        return 2;
    const Lines expected{{IXFS_LOG_INF, "ixfs_mount()", "INF - waiting for mount mutex...\n"},
                         {IXFS_LOG_ERR, "ixfs_mount()", "ERR - unable to obtain mount mutex\n"}};
    if (log.take() != expected || ixfs_last_error(handle.get()) != EC_SYSTEM_ERROR)
        return 3;
    if (!locks(handle, "1"))
        return 4;
    const Line lost{IXFS_LOG_WRN, "_ixfs_view_lock()",
                    "WRN - Acquire failed for ACE_Process_Mutex, error = 13\n"};
    return log.with_message(lost.message) == Lines{lost} ? 0 : 5;
}

TEST_F(ForeignLock, ThatRootMayNotDeleteIsNeitherUsedNorWaitedFor)
{
    for (const ForeignSet& set : foreign_sets) {
        make_as_other_user(set, mount_mutex);
        make_as_other_user(set, first_view_lock());
        EXPECT_EQ(run(cannot_have_a_foreign_lock), 0) << set.name;
        EXPECT_EQ(semaphore_sets().size(), 2U) << set.name;
        delete_every_semaphore_set();
    }
    EXPECT_EQ(helper.runs(), 0);
}

} // namespace
