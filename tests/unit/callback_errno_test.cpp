// Callbacks that change errno: what the library logs and answers does not follow them.
#include "held_threads.h"
#include "mount_fixture.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace
{

void disturb(int severity, const char* tag, const char* message)
{
    LogRecorder::callback(severity, tag, message);
    errno = EXDEV;
}

int lines_of_job = 0;

void disturb_job(void*, int, int, int, int, int, const char*, ...)
{
    ++lines_of_job;
    errno = EXDEV;
}

class CallbackErrno : public MountTest
{
protected:
    CallbackErrno()
    {
        handle = disturbed(disturb);
        lines_of_job = 0;
    }

    Handle disturbed(ixfs_log_callback callback)
    {
        return Handle(ixfs_init(0, nullptr, callback, disturb_job, this));
    }
};

TEST_F(CallbackErrno, LoggingLeavesErrnoAlone)
{
    const InventedLines invented("operation()");
    const std::string long_text(5000, 'x');
    const Handle job_alone = disturbed(nullptr);
    for (_ixfs_control_t* const logging : {handle.get(), job_alone.get()}) {
        for (const int error : {0, ENOENT}) {
            errno = error;
            _ixfs_log(logging, "operation()", IXFS_LOG_INF, "%s\n", "short");
            EXPECT_EQ(errno, error);
            errno = error;
            _ixfs_server_log(logging, "operation()", IXFS_LOG_INF, "%s\n", long_text.c_str());
            EXPECT_EQ(errno, error);
        }
    }
    EXPECT_EQ(log.lines().size(), 4U);
    EXPECT_EQ(lines_of_job, 4);
}

TEST_F(CallbackErrno, FolderCreationLeavesTheErrnoOfItsLastFailure)
{
    image.make_folder("a");
    uint32_t segments = 0;
    errno = 0;
    EXPECT_EQ(_ixfs_folder_create(handle.get(), image.path().c_str(), "a/b", &segments, 0755), 0);
    EXPECT_EQ(errno, EEXIST);
    image.write("file", "");
    EXPECT_EQ(_ixfs_folder_create(handle.get(), image.path().c_str(), "file/b", &segments, 0755),
              1);
    EXPECT_EQ(errno, ENOTDIR);
}

TEST_F(CallbackErrno, MountDirectoryThatIsThereIsFoundSo)
{
    helper.answers({{"EXIT_STATUS=3"}});
    EXPECT_EQ(mount(), nullptr);
    const Lines lines = log.lines();
    const Lines expected = lines_before_mount_command();
    ASSERT_GE(lines.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        EXPECT_EQ(lines[i], expected[i]);
}

TEST_F(CallbackErrno, MountDirectoryThatCannotBeMadeHasItsOwnError)
{
    const auto mkdir = interpose::on_mkdir.fails(EROFS);
    EXPECT_EQ(mount(), nullptr);
    EXPECT_EQ(log.lines().back(),
              mount_says.info("INF - Create mount dir /usr/varnis/var/ixfs/media1 failed, "
                              "error = 30."));
}

TEST_F(CallbackErrno, ValidationThreadThatIsStoppedSawNoError)
{
    HeldThreads threads;
    threads.let_go();
    helper.answers({mounts_image(), {"EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    ASSERT_TRUE(log.wait_for("INF - starting validate thread\n"));
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    ASSERT_TRUE(threads.wait_for_end());
    EXPECT_EQ(log.lines_elsewhere(),
              (Lines{thread_says.info("INF - starting validate thread"),
                     thread_says.info("INF - stopping validate thread, errno = 0")}));
}

} // namespace
