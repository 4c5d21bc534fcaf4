#include "view_lock_test.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>

#include <sys/wait.h>
#include <unistd.h>

namespace
{

using namespace view_lock;

// Another process that locks a view, and holds the lock until this object ends or it is killed.
class Rival
{
public:
    explicit Rival(long id) : id_(id)
    {
        EXPECT_EQ(pipe(to_parent_), 0);
        EXPECT_EQ(pipe(to_child_), 0);
        child_ = fork();
        if (child_ == 0)
            run();
        close(to_parent_[1]);
        close(to_child_[0]);
        char name[256] = "";
        EXPECT_GT(read(to_parent_[0], name, sizeof(name) - 1), 0);
        base_name_ = name;
    }

    ~Rival()
    {
        close(to_child_[1]); // tells the child to end
        if (child_ != 0)
            wait_for_end();
        close(to_parent_[0]);
    }

    Rival(const Rival&) = delete;
    Rival& operator=(const Rival&) = delete;

    const std::string& base_name() const { return base_name_; }

    void kill()
    {
        EXPECT_EQ(::kill(child_, SIGKILL), 0);
        wait_for_end();
    }

private:
    [[noreturn]] void run() const
    {
        close(to_child_[1]);
        _ixfs_control_t* const handle = ixfs_init(0, nullptr, nullptr, nullptr, nullptr);
        _ixfs_view_t* const view = _ixfs_view_create(handle);
        char name[256] = "";
        if (_ixfs_view_lock(handle, view, id_, name, sizeof(name)) == 1) {
            char none;
            if (write(to_parent_[1], name, std::strlen(name)) > 0)
                while (read(to_child_[0], &none, 1) > 0)
                    continue;
        }
        _ixfs_view_delete(handle, view);
        _exit(0);
    }

    void wait_for_end()
    {
        EXPECT_EQ(waitpid(child_, nullptr, 0), child_);
        child_ = 0;
    }

    long id_;
    int to_parent_[2];
    int to_child_[2];
    pid_t child_;
    std::string base_name_;
};

using ViewLockRivals = ViewLockTest;

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
    const Rival rival(id);
    EXPECT_EQ(rival.base_name(), "_vv_esx-proxy70");
    EXPECT_EQ(lock(), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy71");
    EXPECT_EQ(log.take(), (naming_lines + Lines{trying_line(mutex + "0"), lost_line(EAGAIN),
                                                trying_line(mutex + "1"), won_line(mutex + "1")}));
}

TEST_F(ViewLockRivals, FailedTryRemovesTheRivalsLock)
{
    const Rival first(id);
    const Rival second(id);
    EXPECT_EQ(second.base_name(), "_vv_esx-proxy71");
    EXPECT_EQ(semaphore_sets().size(), 1) << "the first's is gone while it still counts on it";
    EXPECT_EQ(lock(), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy70");
}

TEST_F(ViewLockRivals, LockOfAProcessThatEndedIsFree)
{
    {
        const Rival rival(id);
    }
    EXPECT_EQ(semaphore_sets().size(), 0);
    EXPECT_EQ(lock(), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy70");
}

TEST_F(ViewLockRivals, LockOfAProcessThatWasKilledIsFree)
{
    Rival rival(id);
    rival.kill();
    EXPECT_EQ(lock(), 1);
    EXPECT_STREQ(base_name, "_vv_esx-proxy70");
}

} // namespace
