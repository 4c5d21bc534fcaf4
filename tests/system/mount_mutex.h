// Processes that meet at the mount mutex, with a helper that notices when it does not keep them
// apart.
#ifndef IXFS_TESTS_MOUNT_MUTEX_H
#define IXFS_TESTS_MOUNT_MUTEX_H

#include "child_process.h"
#include "cycle_count.h"
#include "handle_test.h"
#include "temp_dir.h"
#include "watchdog.h"

#include <gtest/gtest.h>

#include <string>

// The test's side of exclusive_helper.c, which stands where the library looks for its helper.
class ExclusiveHelper
{
public:
    ExclusiveHelper();
    ~ExclusiveHelper();
    ExclusiveHelper(const ExclusiveHelper&) = delete;
    ExclusiveHelper& operator=(const ExclusiveHelper&) = delete;

    int runs() const;
    int overlaps() const; // runs that began during another one
    int take_overlaps();  // the same, and forgets them

    // Lets each run last so long, in milliseconds below 1,000.
    void set_duration(int milliseconds);

    // Lets the next run stop in its middle.
    void hold_next_run();

    // Waits until the held run stands there, then lets it go on at let_go() or with this object.
    class HeldRun
    {
    public:
        explicit HeldRun(const ExclusiveHelper& helper);
        ~HeldRun() { let_go(0); }
        HeldRun(const HeldRun&) = delete;
        HeldRun& operator=(const HeldRun&) = delete;

        void let_go(int exit_status);

    private:
        int gate_;
    };
};

// Waits until that many processes wait for the mount mutex.
void wait_for_waiters(int count);

void delete_every_semaphore_set();

// The calls under test, with arguments that don't matter. Each returns whether it succeeded and
// tells on standard error if not.
bool mounts(const Handle& handle, const std::string& server = "media1");
bool unmounts(const Handle& handle);
bool recreates_context(const Handle& handle, const std::string& server = "media1");

Handle quiet_handle();

// Children that mount and unmount once. They return how many of the two failed.
int mount_and_unmount(ChildProcess::Parent& parent);
int mount_pause_and_unmount(ChildProcess::Parent& parent);

// For a child: goes on as a user that is not root. Returns whether that worked.
bool become_other_user();

// A fixture whose test ends well only if no helper runs met, no semaphore is left in the kernel,
// and no child process said anything on standard error.
class MountMutexTest : public testing::Test
{
protected:
    MountMutexTest();
    ~MountMutexTest() override;

    // Only children use the library, so that the test process has no threads when it forks.
    ChildProcess start(const ChildProcess::Body& body) const { return {errors_, body}; }
    int run(const ChildProcess::Body& body) const { return start(body).wait(); }

    void TearDown() override;

    // Whether children can become another user.
    bool there_are_other_users() const;

    Watchdog watchdog{std::chrono::seconds(cycle_count(240))};
    ExclusiveHelper helper;

private:
    TempDir folder_;
    int errors_;
};

#endif
