#include "handle_test.h"
#include "interpose.h"
#include "record_view.h"
#include "scripted_helper.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace
{

using Control = HandleTest;

TEST_F(Control, InitTakesItsArgumentsAndLogsNothing)
{
    const InventedLines invented("operation()");
    int log_context = 0;
    const Handle made(ixfs_init(IXFS_FLAG_UNMOUNT_CRED | IXFS_FLAG_VIEW_ID, &log_context,
                                LogRecorder::callback, JobLogRecorder::callback, &job_log));
    EXPECT_EQ(log.lines(), Lines{});
    EXPECT_EQ(job_log.lines(), std::vector<std::string>{});
    EXPECT_STREQ(record_view::mark_of(made.get()), "IxFsCtL");
    EXPECT_FALSE(record_view::has_mount(made.get()));
    EXPECT_EQ(record_view::log_context(made.get()), &log_context);

    _ixfs_server_log(made.get(), "operation()", IXFS_LOG_INF, "INF - line\n");
    EXPECT_EQ(log.take(), (Lines{{IXFS_LOG_INF, "operation()", "INF - line\n"}}));
    EXPECT_EQ(job_log.lines(), std::vector<std::string>{"JBD - INF - line\n"});

    char base_name[1024];
    _ixfs_view_t* const view = _ixfs_view_create(made.get());
    EXPECT_EQ(view->next, nullptr) << "there is no other";
    EXPECT_EQ(_ixfs_view_lock(made.get(), view, 4711, base_name, sizeof(base_name)), 1);
    EXPECT_NE(std::strstr(base_name, "_4711"), nullptr) << "one flag puts the view's number there";
}

TEST_F(Control, InitTakesTheFlagThatCutsTheUnmountCommand)
{
    const ScriptedHelper helper({{"MOUNTPOINT=/nowhere", "EXIT_STATUS=0"}, {"EXIT_STATUS=0"}});
    const Handle made = make_handle(IXFS_FLAG_UNMOUNT_CRED);
    ASSERT_STREQ(ixfs_mount(made.get(), "mount", "unmount", 1, "server", 0, nullptr), "/nowhere");
    EXPECT_EQ(ixfs_unmount(made.get()), EC_OK);
    const Lines lines = log.with_tag("ixfs_unmount()");
    const auto is_cut = [](const Line& line) {
        return line.message.find("INF - running command - ") == 0 &&
               line.message.find("...\n") != std::string::npos;
    };
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(), is_cut), 1);
}

TEST_F(Control, InitReturnsNullWhenMemoryIsShortAndLogsNothing)
{
    _ixfs_control_t* made = handle.get();
    {
        auto no_memory = interpose::on_allocation.fails(ENOMEM);
        made = ixfs_init(0, nullptr, LogRecorder::callback, nullptr, nullptr);
    }
    EXPECT_EQ(made, nullptr);
    EXPECT_EQ(log.lines(), Lines{});
}

#ifndef IXFS_SANITIZER_DEFINES_NEW
TEST_F(Control, InitReturnsNullWhenMemoryIsShortForTheSecondObject)
{
    const auto no_memory = interpose::on_allocation.fails(ENOMEM, 2);
    EXPECT_EQ(ixfs_init(0, nullptr, LogRecorder::callback, nullptr, nullptr), nullptr);
    EXPECT_EQ(no_memory.calls(), 2);
}
#endif

TEST_F(Control, InitRunsTheLogInitialisation)
{
    std::strcpy(g_lc_time, "stale");
    const Handle made = make_handle();
    EXPECT_STRNE(g_lc_time, "stale");
}

TEST_F(Control, InitOnSeveralThreadsAtOnce)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([] { EXPECT_EQ(_ixfs_is_invalid(make_handle().get()), 0); });
    for (std::thread& thread : threads)
        thread.join();
}

TEST_F(Control, NewHandleIsValidWithStatusZero)
{
    EXPECT_EQ(_ixfs_is_invalid(handle.get()), 0);
    EXPECT_EQ(ixfs_last_error(handle.get()), 0);
}

TEST_F(Control, MagicThatDiffersInAnyByteIsInvalidAndItsLastErrorIs20)
{
    char* const mark = record_view::mark_of(handle.get());
    for (int i = 0; i < 8; ++i) {
        SCOPED_TRACE(i);
        char& byte = mark[i];
        byte = static_cast<char>(byte ^ 1);
        EXPECT_EQ(_ixfs_is_invalid(handle.get()), 1);
        EXPECT_EQ(ixfs_last_error(handle.get()), 20);
        byte = static_cast<char>(byte ^ 1);
    }
    EXPECT_EQ(_ixfs_is_invalid(handle.get()), 0);
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(Control, NullHandleIsInvalidAndItsLastErrorIs20)
{
    EXPECT_EQ(_ixfs_is_invalid(nullptr), 1);
    EXPECT_EQ(ixfs_last_error(nullptr), 20);
}

TEST_F(Control, LastErrorIsNotClearedByReading)
{
    _ixfs_no_mount(handle.get(), EC_HELPER_FAILED);
    EXPECT_EQ(ixfs_last_error(handle.get()), 29);
    EXPECT_EQ(ixfs_last_error(handle.get()), 29);
}

TEST_F(Control, TermOnAHandleThatNeverMountedLogsNothing)
{
    handle.reset();
    EXPECT_EQ(log.lines(), Lines{});
    EXPECT_EQ(job_log.lines(), std::vector<std::string>{});
}

TEST_F(Control, TermRunsTheUnmountOfAHandleWithoutAMountPoint)
{
    ASSERT_EQ(ixfs_recreate_minimal_context(handle.get(), "mount", "unmount", 1, "server", 0, ""),
              0);
    log.take();
    handle.reset();
    EXPECT_EQ(log.lines(), (Lines{{IXFS_LOG_ERR, "ixfs_unmount()",
                                   "ERR - invalid parameter, missing mount point\n"}}));
}

TEST_F(Control, TermLeavesAnInvalidHandleAlone)
{
    record_view::mark_of(handle.get())[0] = 'x';
    ixfs_term(handle.get());
    ixfs_term(nullptr);
    record_view::mark_of(handle.get())[0] = 'I';
    EXPECT_EQ(_ixfs_is_invalid(handle.get()), 0);
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(Control, TermDeletesEveryViewAndItsLock)
{
    char base_name[1024];
    for (int i = 0; i < 3; ++i) {
        _ixfs_view_t* const view = _ixfs_view_create(handle.get());
        ASSERT_EQ(_ixfs_view_lock(handle.get(), view, 100 + i, base_name, sizeof(base_name)), 1);
    }
    int locks_deleted = 0;
    auto semctl_hook =
        interpose::on_semctl([&](int, int, int command, void*) -> std::optional<int> {
            locks_deleted += command == IPC_RMID;
            return std::nullopt;
        });
    handle.reset();
    EXPECT_EQ(locks_deleted, 3);
}

// Leaks are for the sanitizer to see.
TEST_F(Control, TermFreesTheNameGroups)
{
    record_view::add_name_group(handle.get(), "group", {"name", "other name"});
    record_view::add_name_group(handle.get(), "other group", {"name"});
    handle.reset();
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(Control, NoMountRecordsTheStatusOfAHandleWithoutAMount)
{
    _ixfs_no_mount(handle.get(), EC_MOUNT_DIRECTORY);
    EXPECT_EQ(ixfs_last_error(handle.get()), 35);
    EXPECT_FALSE(record_view::has_mount(handle.get()));
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(Control, NoMountDeletesTheMountRecord)
{
    ASSERT_EQ(ixfs_recreate_minimal_context(handle.get(), "mount", "unmount", 1, "server", 0, ""),
              0);
    log.take();
    _ixfs_no_mount(handle.get(), EC_SYSTEM_ERROR);
    EXPECT_EQ(ixfs_last_error(handle.get()), 11);
    EXPECT_FALSE(record_view::has_mount(handle.get()));
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(Control, LastErrorKeepsAnEarlierFailureAfterASuccessfulMount)
{
    const ScriptedHelper helper({{"MOUNTPOINT=/nowhere", "EXIT_STATUS=0"}, {"EXIT_STATUS=0"}});
    EXPECT_EQ(ixfs_mount(handle.get(), "mount", "unmount", 0, "server", 0, nullptr), nullptr);
    ASSERT_EQ(ixfs_last_error(handle.get()), 20);

    ASSERT_STREQ(ixfs_mount(handle.get(), "mount", "unmount", 1, "server", 0, nullptr), "/nowhere");
    EXPECT_EQ(ixfs_last_error(handle.get()), 20);

    EXPECT_EQ(ixfs_unmount(handle.get()), 0);
    EXPECT_EQ(ixfs_last_error(handle.get()), 20);
}

TEST_F(Control, StatusesHaveTheProductsNumbers)
{
    EXPECT_EQ(EC_OK, 0);
    EXPECT_EQ(EC_FOLDER_NOT_CREATED, 1);
    EXPECT_EQ(EC_NO_MEMORY, 10);
    EXPECT_EQ(EC_SYSTEM_ERROR, 11);
    EXPECT_EQ(EC_FILE_NOT_OPENED, 12);
    EXPECT_EQ(EC_FILE_NOT_READ, 13);
    EXPECT_EQ(EC_FILE_NOT_COPIED, 14);
    EXPECT_EQ(EC_INVALID_PARAMETER, 20);
    EXPECT_EQ(EC_SERVER_BUSY, 25);
    EXPECT_EQ(EC_HELPER_FAILED, 29);
    EXPECT_EQ(EC_MOUNT_DIRECTORY, 35);
    EXPECT_EQ(EC_VIEW_NOT_CREATED, 36);
    EXPECT_EQ(EC_NO_HANDLE, 103);
    EXPECT_EQ(EC_FILE_NOT_FOUND, 142);
    EXPECT_EQ(EC_VIEW_NOT_LOCKED, 158);
    EXPECT_EQ(EC_INVALID_SCHEDULE, 223);
    EXPECT_EQ(EC_ALREADY_MOUNTED, 226);
    EXPECT_EQ(sizeof(ec_status), 4U);
}

} // namespace
