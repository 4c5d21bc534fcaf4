// A caller that is another user than the one whose lock and files it meets.
#include "mount_mutex.h"

#include "file_lines.h"
#include "mount_fixture.h"
#include "process_state.h"

#include <cerrno>
#include <cstdio>

#include <sys/stat.h>
#include <unistd.h>

namespace
{

// A child's expectation: tells on standard error what is not as expected.
template <typename Value>
bool is(const Value& found, const Value& expected)
{
    if (found == expected)
        return true;
    std::fprintf(stderr, "%s instead of %s\n", testing::PrintToString(found).c_str(),
                 testing::PrintToString(expected).c_str());
    return false;
}

class OtherUser : public MountMutexTest
{
protected:
    void SetUp() override
    {
        if (!there_are_other_users())
            GTEST_SKIP() << "this namespace has one user alone: be root outside of it";
        chmod(folder.path().c_str(), 0755);
    }

    // Runs a check as the other user, with a handle. Returns whether it holds.
    template <typename Check>
    bool holds_for_other_user(Check check) const
    {
        return run([check](ChildProcess::Parent&) {
                   LogRecorder log;
                   if (!become_other_user())
                       return 1;
                   const Handle handle = make_handle();
                   return check(handle.get(), log) ? 0 : 1;
               }) == 0;
    }

    TempDir folder;
};

// Whether the call that began with a line of that speaker has not got the lock.
bool got_no_lock(const _ixfs_control_t* handle, const LogRecorder& log, const Speaker& speaker)
{
    return is(log.lines(), Lines{speaker.info("INF - waiting for mount mutex..."),
                                 speaker.error("ERR - unable to obtain mount mutex")}) &&
           is(ixfs_last_error(handle), EC_SYSTEM_ERROR);
}

bool cannot_have_the_lock(_ixfs_control_t* handle, LogRecorder& log)
{
    const auto mount = [&] {
        return ixfs_mount(handle, "mount-cred", "unmount-cred", 1, "media2", 0, nullptr);
    };
    const auto context = [&] {
        return ixfs_recreate_minimal_context(handle, "mount-cred", "unmount-cred", 1, "media2", 0,
                                             "/m/x");
    };
    if (mount() != nullptr || !got_no_lock(handle, log, mount_says))
        return false;
    log.take();
    return is(context(), -1) && got_no_lock(handle, log, context_says);
}

TEST_F(OtherUser, DoesNotGetALockThatIsFree)
{
    ChildProcess root = start(mount_pause_and_unmount);
    root.wait_for_pause();
    EXPECT_TRUE(holds_for_other_user(cannot_have_the_lock));
    root.go_on();
    EXPECT_EQ(root.wait(), 0);
    EXPECT_EQ(helper.runs(), 2);
}

TEST_F(OtherUser, DoesNotGetALockThatIsHeld)
{
    helper.hold_next_run();
    ChildProcess root = start(mount_and_unmount);
    ExclusiveHelper::HeldRun held(helper);
    EXPECT_TRUE(holds_for_other_user(cannot_have_the_lock));
    ChildProcess waiting = start(mount_and_unmount);
    wait_for_waiters(1);
    EXPECT_EQ(helper.runs(), 1) << "the lock still keeps others out";
    held.let_go(0);
    EXPECT_EQ(root.wait(), 0);
    EXPECT_EQ(waiting.wait(), 0);
}

constexpr char access_denied[] = ", error = 13\n";

TEST_F(OtherUser, NeitherReadsNorChangesWhatIsClosedToIt)
{
    folder.make_folder("closed/folder");
    folder.write("closed/file", "bytes");
    chmod((folder / "closed").c_str(), 0700);
    const std::string file = folder / "closed/file";
    const std::string inside = folder / "closed/folder";
    EXPECT_TRUE(holds_for_other_user([&](_ixfs_control_t* handle, LogRecorder& log) {
        return is(_ixfs_file_exists(handle, file.c_str()), 0) &&
               is(log.take(),
                  Lines{{IXFS_LOG_ERR, "_ixfs_file_exists()",
                         "ERR - ACE_OS::access(" + file + ") failed" + access_denied}}) &&
               is(_ixfs_create_hard_link(handle, file.c_str(), (file + "2").c_str()), EACCES) &&
               is(log.take(),
                  Lines{{IXFS_LOG_ERR, "_ixfs_create_hard_link()",
                         "ERR - Could not create link " + file + " to " + file + "2 - 13\n"}}) &&
               is(_ixfs_copy_desc(handle, file.c_str(), (file + "2").c_str(), "flat"), 0) &&
               is(log.take(), Lines{{IXFS_LOG_ERR, "_ixfs_copy_desc()",
                                     "ERR - can't open old " + file + ", err 13\n"}}) &&
               is(_ixfs_folder_delete(handle, inside.c_str()), 1) &&
               is(log.take(),
                  Lines{{IXFS_LOG_ERR, "_ixfs_folder_delete()",
                         "ERR - ACE_OS::opendir(" + inside + ") failed" + access_denied}});
    }));
    EXPECT_EQ(folder.read("closed/file"), "bytes");
    EXPECT_TRUE(folder.exists("closed/folder"));
}

TEST_F(OtherUser, ChangesNothingThatItMayOnlyRead)
{
    folder.make_folder("open");
    folder.write("open/file", "RW 1 VMFS \"a\"\n");
    const std::string open = folder / "open";
    EXPECT_TRUE(holds_for_other_user([&](_ixfs_control_t* handle, LogRecorder& log) {
        uint32_t segments = 0;
        const bool folders =
            is(_ixfs_folder_create(handle, open.c_str(), "new", &segments, 0755), 1) &&
            is(log.take().back(), Line{IXFS_LOG_INF, "_ixfs_folder_create()",
                                       "ERR - ACE_OS::mkdir(): Could not create Parent (" + open +
                                           "/new), error: 13\n"}) &&
            is(_ixfs_folder_delete(handle, open.c_str()), 1) &&
            is(log.take(),
               Lines{{IXFS_LOG_ERR, "_ixfs_folder_delete()",
                      "ERR - ACE_OS::unlink(" + open + "/file) failed" + access_denied}});
        const std::string copy = open + "/copy";
        return folders &&
               is(_ixfs_copy_desc(handle, (open + "/file").c_str(), copy.c_str(), "flat"), 0) &&
               is(log.take(), Lines{{IXFS_LOG_ERR, "_ixfs_copy_desc()",
                                     "ERR - can't open new " + copy + ", err 13\n"}});
    }));
    EXPECT_EQ(folder.read("open/file"), "RW 1 VMFS \"a\"\n");
    EXPECT_FALSE(folder.exists("open/copy"));
    EXPECT_FALSE(folder.exists("open/new"));
}

} // namespace
