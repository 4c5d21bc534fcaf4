// A mount record without a mount.
#include "memory_shortage.h"
#include "mount_fixture.h"
#include "process_state.h"
#include "record_view.h"

#include <ace/Process_Mutex.h>

#include <algorithm>
#include <climits>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace
{

const Line wait_line = context_says.info("INF - waiting for mount mutex...");
const Line missing_mount_point = unmount_says.error("ERR - invalid parameter, missing mount point");

class MinimalContext : public MountTest
{
protected:
    int recreate(const char* mnt_path = "/m/x", unsigned int timeout = 45)
    {
        return ixfs_recreate_minimal_context(handle.get(), mount_cred, unmount_cred, port, server,
                                             timeout, mnt_path);
    }

    // A failure that attaches nothing.
    void expect_no_context(ec_status status)
    {
        EXPECT_EQ(ixfs_last_error(handle.get()), status);
        EXPECT_FALSE(record_view::has_mount(handle.get()));
        EXPECT_EQ(semaphore_sets().size(), 0U);
        EXPECT_EQ(job_log.lines(), std::vector<std::string>{});
    }
};

TEST_F(MinimalContext, SaysOnlyThatItWaits)
{
    EXPECT_EQ(recreate(), 0);
    EXPECT_EQ(log.lines(), Lines{wait_line});
    EXPECT_EQ(job_log.lines(),
              std::vector<std::string>{"JBD - INF - waiting for mount mutex...\n"});
}

TEST_F(MinimalContext, RecordHasItsFieldsInOrderAsTheHandleHas)
{
    ASSERT_EQ(recreate(), 0);
    const record_view::Addresses record = record_view::fields_of_mount(handle.get());
    EXPECT_TRUE(std::is_sorted(record.begin(), record.end(), std::less<>()));
    const record_view::Addresses control = record_view::fields_of_handle(handle.get());
    EXPECT_TRUE(std::is_sorted(control.begin(), control.end(), std::less<>()));
    EXPECT_STREQ(static_cast<const char*>(control.front()), "IxFsCtL") << "the mark comes first";
}

TEST_F(MinimalContext, HasTheArgumentsAndNoMountPointEventOrThread)
{
    const auto threads = interpose::on_pthread_create.watch();
    ASSERT_EQ(recreate(), 0);
    ASSERT_TRUE(record_view::has_mount(handle.get()));
    const record_view::Mount mount = record_view::mount(handle.get());
    EXPECT_EQ(mount.control, handle.get());
    EXPECT_EQ(mount.mount_point, "");
    EXPECT_EQ(mount.timeout, 45);
    EXPECT_FALSE(mount.holds_mutex);
    EXPECT_EQ(mount.server, server);
    EXPECT_EQ(mount.port, port);
    EXPECT_EQ(mount.mount_cred, mount_cred);
    EXPECT_EQ(mount.unmount_cred, unmount_cred);
    EXPECT_EQ(mount.mnt_path, "/m/x");
    EXPECT_FALSE(mount.has_event);
    EXPECT_EQ(threads.calls(), 0);
}

TEST_F(MinimalContext, RunsNoHelperAndMakesNoDirectory)
{
    const auto popen = interpose::on_popen.watch();
    const auto mkdir = interpose::on_mkdir.watch();
    ASSERT_EQ(recreate(), 0);
    EXPECT_EQ(popen.calls(), 0);
    EXPECT_EQ(mkdir.calls(), 0);
}

TEST_F(MinimalContext, SuccessKeepsTheLastStatus)
{
    ASSERT_EQ(recreate(nullptr), EC_INVALID_PARAMETER);
    ixfs_unmount(handle.get());
    ASSERT_EQ(ixfs_last_error(handle.get()), EC_INVALID_PARAMETER);
    EXPECT_EQ(recreate(), 0);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_INVALID_PARAMETER);
}

TEST_F(MinimalContext, StoresATimeoutOfAtMostSixtySeconds)
{
    const std::pair<unsigned int, int> timeouts[] = {{600, 60}, {UINT_MAX, 60}, {61, 60},
                                                     {60, 60},  {59, 59},       {0, 0}};
    for (const auto& [given, stored] : timeouts) {
        ASSERT_EQ(recreate("/m/x", given), 0);
        EXPECT_EQ(record_view::mount(handle.get()).timeout, stored);
        ixfs_unmount(handle.get());
    }
}

TEST_F(MinimalContext, AcceptsAnEmptyMountPath)
{
    EXPECT_EQ(recreate(""), 0);
    EXPECT_EQ(record_view::mount(handle.get()).mnt_path, "");
}

TEST_F(MinimalContext, NullMountPathFailsAndStaysAttached)
{
    EXPECT_EQ(recreate(nullptr), 20);
    EXPECT_EQ(log.take(),
              Lines{context_says.error("ERR - invalid parameter, missing server name")});
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_INVALID_PARAMETER);
    EXPECT_TRUE(record_view::has_mount(handle.get()));

    EXPECT_EQ(recreate(), -1);
    EXPECT_EQ(log.take(), Lines{context_says.error("ERR - a mount has already been made")});
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_ALREADY_MOUNTED);
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(MinimalContext, OnAMountedHandleFailsAndLeavesTheMount)
{
    given_mount(mounts_image());
    EXPECT_EQ(recreate(), -1);
    EXPECT_EQ(log.take(), Lines{context_says.error("ERR - a mount has already been made")});
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_ALREADY_MOUNTED);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(helper.runs().size(), 2U);
}

TEST_F(MinimalContext, CountsAsAMountForTheNextMount)
{
    ASSERT_EQ(recreate(), 0);
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_ALREADY_MOUNTED);
    EXPECT_TRUE(record_view::has_mount(handle.get()));
}

// Its end

TEST_F(MinimalContext, UnmountFreesItAndReportsTheMissingMountPoint)
{
    ASSERT_EQ(recreate(), 0);
    log.take();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_INVALID_PARAMETER);
    EXPECT_EQ(log.lines(), Lines{missing_mount_point});
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_INVALID_PARAMETER);
    EXPECT_FALSE(record_view::has_mount(handle.get()));
    EXPECT_EQ(helper.runs().size(), 0U);
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(MinimalContext, HandlesEndFreesItAndReportsTheMissingMountPoint)
{
    ASSERT_EQ(recreate(nullptr), 20);
    log.take();
    handle.reset();
    EXPECT_EQ(log.lines(), Lines{missing_mount_point});
}

TEST_F(MinimalContext, LeavesNoLockAndNoDescriptor)
{
    const NoLocksLeft no_locks;
    const NoDescriptorsLeft no_descriptors;
    ASSERT_EQ(recreate(), 0);
    ixfs_unmount(handle.get());
}

// Failures

TEST_F(MinimalContext, OfAnInvalidHandleRecordsNothing)
{
    EXPECT_EQ(
        ixfs_recreate_minimal_context(nullptr, mount_cred, unmount_cred, port, server, 60, "/m/x"),
        -1);
    record_view::mark_of(handle.get())[7] = '!';
    EXPECT_EQ(recreate(), -1);
    record_view::mark_of(handle.get())[7] = '\0';
    EXPECT_EQ(log.lines(), Lines{});
    expect_no_context(EC_OK);
}

TEST_F(MinimalContext, ChecksItsArgumentsAsTheMountDoes)
{
    struct Case {
        const char* mount_cred;
        const char* unmount_cred;
        int port;
        const char* server;
        const char* message;
    };
    const char* const none = nullptr;
    for (const Case& wrong :
         {Case{"a", "b", 1, none, "ERR - invalid parameter, invalid media server"},
          Case{"a", "b", 1, "", "ERR - invalid parameter, invalid media server"},
          Case{"a", "b", 0, "s", "ERR - invalid parameter, invalid port number"},
          Case{"a", "b", -1, "s", "ERR - invalid parameter, invalid port number"},
          Case{none, "b", 1, "s", "ERR - invalid credentials"},
          Case{"", "b", 1, "s", "ERR - invalid credentials"},
          Case{"a", none, 1, "s", "ERR - invalid credentials"},
          Case{"a", "", 1, "s", "ERR - invalid credentials"},
          Case{none, none, 0, none, "ERR - invalid parameter, invalid media server"}}) {
        EXPECT_EQ(ixfs_recreate_minimal_context(handle.get(), wrong.mount_cred, wrong.unmount_cred,
                                                wrong.port, wrong.server, 60, nullptr),
                  -1);
        EXPECT_EQ(log.take(), Lines{context_says.error(wrong.message)});
        expect_no_context(EC_INVALID_PARAMETER);
    }
}

TEST_F(MinimalContext, NoMemoryForTheRecord)
{
    {
        const auto no_memory = interpose::on_allocation.fails(ENOMEM);
        EXPECT_EQ(recreate(), -1);
    }
    EXPECT_EQ(log.lines(),
              Lines{context_says.error("ERR - calloc failed for mount structure, error = 12")});
    expect_no_context(EC_NO_MEMORY);
}

TEST_F(MinimalContext, NoMemoryForAText)
{
    // told apart by their lengths
    const std::string long_server(501, 's');
    const std::string long_mount_cred(603, 'm');
    const std::string long_unmount_cred(705, 'u');
    const std::string long_path(807, 'p');
    struct Case {
        const std::string& text;
        int result;
        const char* what;
    };
    for (const Case& wanted :
         {Case{long_server, -1, "server name"}, Case{long_mount_cred, -1, "credentials"},
          Case{long_unmount_cred, -1, "credentials"}, Case{long_path, 10, "mount path"}}) {
        {
            const auto no_memory = MemoryShortage::for_copies_of(wanted.text);
            EXPECT_EQ(ixfs_recreate_minimal_context(handle.get(), long_mount_cred.c_str(),
                                                    long_unmount_cred.c_str(), port,
                                                    long_server.c_str(), 60, long_path.c_str()),
                      wanted.result);
        }
        EXPECT_EQ(log.take(),
                  Lines{context_says.error("ERR - allocation for " + std::string(wanted.what) +
                                           " failed, error = 12")});
        expect_no_context(EC_NO_MEMORY);
    }
}

#ifndef IXFS_SANITIZER_DEFINES_NEW
TEST_F(MinimalContext, NoMutexObject)
{
    const MemoryShortage no_object(sizeof(ACE_Process_Mutex));
    EXPECT_EQ(recreate(), -1);
    EXPECT_EQ(log.lines(), Lines{context_says.info(
                               "INF - Initialization failed for ACE_Process_Mutex, error = 12")});
    expect_no_context(EC_SYSTEM_ERROR);
}
#endif

} // namespace
