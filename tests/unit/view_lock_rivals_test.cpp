#include "child_process.h"
#include "view_lock_test.h"

#include <cerrno>
#include <cstring>

#include <unistd.h>

namespace
{

using namespace view_lock;

class ViewLockRivals : public ViewLockTest
{
protected:
    // Another process that locks a view, pauses, and deletes the view. Returns when it pauses.
    static ChildProcess start_rival(const char* expected_base_name)
    {
        ChildProcess rival(STDERR_FILENO, [expected_base_name](ChildProcess::Parent& parent) {
            const Handle handle(ixfs_init(0, nullptr, nullptr, nullptr, nullptr));
            _ixfs_view_t* const view = _ixfs_view_create(handle.get());
            char name[256];
            if (_ixfs_view_lock(handle.get(), view, id, name, sizeof(name)) != 1 ||
                std::strcmp(name, expected_base_name) != 0)
                return 1;
            parent.pause();
            _ixfs_view_delete(handle.get(), view);
            return 0;
        });
        rival.wait_for_pause();
        return rival;
    }

    static void end(ChildProcess& rival)
    {
        rival.go_on();
        EXPECT_EQ(rival.wait(), 0);
    }
};

TEST_F(ViewLockRivals, TwoViewsOfOneProcessGetDifferentNames)
{
    EXPECT_EQ(lock(), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy70");
    log.take();
    EXPECT_EQ(lock(_ixfs_view_create(handle.get())), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy71");
    EXPECT_EQ(log.take(), (naming_lines + Lines{trying_line(mutex + "0"), lost_line(EAGAIN),
                                                trying_line(mutex + "1"), won_line(mutex + "1")}));
}

TEST_F(ViewLockRivals, OtherIdsDoNotCompete)
{
    EXPECT_EQ(lock(), 1);
    _ixfs_view_t* const other = _ixfs_view_create(handle.get());
    EXPECT_EQ(_ixfs_view_lock(handle.get(), other, id + 1, base_name, sizeof(base_name)), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy70");
    EXPECT_EQ(semaphore_sets().size(), 2);
}

TEST_F(ViewLockRivals, TwoProcessesGetDifferentNames)
{
    ChildProcess rival = start_rival("_vv_esx-proxy70");
    EXPECT_EQ(lock(), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy71");
    EXPECT_EQ(log.take(), (naming_lines + Lines{trying_line(mutex + "0"), lost_line(EAGAIN),
                                                trying_line(mutex + "1"), won_line(mutex + "1")}));
    end(rival);
}

TEST_F(ViewLockRivals, FailedTryRemovesTheRivalsLock)
{
    ChildProcess rival = start_rival("_vv_esx-proxy70");
    EXPECT_EQ(lock(), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy71");
    EXPECT_EQ(semaphore_sets().size(), 1) << "the rival's is gone while it still counts on it";

    EXPECT_EQ(lock(_ixfs_view_create(handle.get())), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy70");
    end(rival);
    EXPECT_EQ(semaphore_sets().size(), 2) << "the rival's end takes nothing of what is now ours";
}

TEST_F(ViewLockRivals, LockOfADeletedViewIsFree)
{
    ChildProcess rival = start_rival("_vv_esx-proxy70");
    end(rival);
    EXPECT_EQ(semaphore_sets().size(), 0);
    EXPECT_EQ(lock(), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy70");
}

TEST_F(ViewLockRivals, LockOfAProcessThatWasKilledIsFree)
{
    ChildProcess rival = start_rival("_vv_esx-proxy70");
    rival.kill();
    rival.wait();
    EXPECT_EQ(lock(), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy70");
}

} // namespace
