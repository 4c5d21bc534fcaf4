// Handles that a fork has brought into another process. They serve for nothing there, and ending
// them touches nothing that is their maker's.
#include "forked_child.h"
#include "interpose.h"
#include "line_watch.h"
#include "mount_fixture.h"
#include "process_mutex_set.h"
#include "process_state.h"
#include "record_view.h"
#include "watchdog.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <sched.h>
#include <sys/wait.h>

namespace
{

// What a process asks the kernel for that others can see.
class OutsideCalls
{
public:
    int count() const
    {
        return semop_.calls() + semctl_.calls() + semget_.calls() + popen_.calls() +
               umount_.calls() + rmdir_.calls() + mkdir_.calls() + unlink_.calls();
    }

private:
    decltype(interpose::on_semop)::Hook semop_ = interpose::on_semop.watch();
    decltype(interpose::on_semctl)::Hook semctl_ = interpose::on_semctl.watch();
    decltype(interpose::on_semget)::Hook semget_ = interpose::on_semget.watch();
    decltype(interpose::on_popen)::Hook popen_ = interpose::on_popen.watch();
    decltype(interpose::on_umount2)::Hook umount_ = interpose::on_umount2.watch();
    decltype(interpose::on_rmdir)::Hook rmdir_ = interpose::on_rmdir.watch();
    decltype(interpose::on_mkdir)::Hook mkdir_ = interpose::on_mkdir.watch();
    decltype(interpose::on_unlink)::Hook unlink_ = interpose::on_unlink.watch();
};

class ForkedHandle : public MountTest
{
protected:
    static constexpr long id = 4711;

    // Runs `body` in a fork. Expects, beside its checks, that it neither logs nor does anything
    // that others can see, that the locks are afterwards as they were, and that nothing leaks.
    void in_silent_child(const ForkedBody& body)
    {
        const std::size_t lines = log.lines().size();
        const std::vector<std::string> job_lines = job_log.lines();
        const auto locks = process_mutex_set::values_of_all();
        in_forked_child([&](ChildChecks& checks) {
            leave_watch_to_its_thread();
            const OutsideCalls outside;
            body(checks);
            checks.expect(outside.count() == 0, "it touches nothing outside");
            checks.expect(log.lines().size() == lines, "it logs nothing");
            checks.expect(job_log.lines() == job_lines, "it logs nothing for the job");
            checks.expect_no_leaks();
        });
        EXPECT_EQ(process_mutex_set::values_of_all(), locks);
    }

    void leave_watch_to_its_thread() const
    {
        if (record_view::has_mount(handle.get()))
            leave_to_its_thread(record_view::watch_of(handle.get()));
    }

    int recreate()
    {
        return ixfs_recreate_minimal_context(handle.get(), mount_cred, unmount_cred, port, server,
                                             0, "/m/x");
    }

    int lock(const Handle& owner, _ixfs_view_t* view)
    {
        return _ixfs_view_lock(owner.get(), view, id, base_name, sizeof(base_name));
    }

    _ixfs_view_t* create_locked_view()
    {
        _ixfs_view_t* const view = _ixfs_view_create(handle.get());
        EXPECT_EQ(lock(handle, view), 1);
        return view;
    }

    // Expects that the mount is the handle's still, and unmounts it as ever.
    void expect_unmounts_as_ever()
    {
        ASSERT_TRUE(record_view::has_mount(handle.get()));
        log.take();
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
        EXPECT_EQ(log.lines_here(),
                  lines_before_unmount_command() +
                      lines_of_run(unmount_says, unmount_command(), {"EXIT_STATUS=0"}));
        EXPECT_EQ(helper.runs().size(), 2U) << "a mount and an unmount, by the process itself";
        EXPECT_EQ(semaphore_sets().size(), 0U);
    }

    Watchdog watchdog{std::chrono::seconds(60)};
    char base_name[256] = "unset";
};

TEST_F(ForkedHandle, IsValidByItsMarkAlone)
{
    in_silent_child([this](ChildChecks& checks) {
        checks.expect(_ixfs_is_invalid(handle.get()) == 0, "the handle is valid");
        record_view::mark_of(handle.get())[0] = 'x';
        checks.expect(_ixfs_is_invalid(handle.get()) == 1, "a handle without the mark is not");
    });
}

TEST_F(ForkedHandle, LastErrorIsThatOfAnInvalidHandle)
{
    in_silent_child([this](ChildChecks& checks) {
        checks.expect(ixfs_last_error(handle.get()) == EC_INVALID_PARAMETER, "it is 20");
    });
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_OK);
}

TEST_F(ForkedHandle, IsNotMounted)
{
    in_silent_child([this](ChildChecks& checks) {
        checks.expect(mount() == nullptr, "ixfs_mount returns null");
        checks.expect(!record_view::has_mount(handle.get()), "nothing is attached");
        checks.expect(record_view::last_status(handle.get()) == EC_OK, "nothing is recorded");
    });
    EXPECT_EQ(helper.runs().size(), 0U);
}

TEST_F(ForkedHandle, WithAMountIsNotMountedEither)
{
    given_mount(mounts_image());
    in_silent_child([this](ChildChecks& checks) {
        checks.expect(mount() == nullptr, "ixfs_mount returns null");
        checks.expect(record_view::last_status(handle.get()) == EC_OK, "nothing is recorded");
    });
    expect_unmounts_as_ever();
}

TEST_F(ForkedHandle, IsNotUnmounted)
{
    given_mount(mounts_image());
    in_silent_child([this](ChildChecks& checks) {
        checks.expect(ixfs_unmount(handle.get()) == EC_INVALID_PARAMETER, "the result is 20");
        checks.expect(record_view::has_mount(handle.get()), "the record stays");
        checks.expect(record_view::last_status(handle.get()) == EC_OK, "nothing is recorded");
    });
    expect_unmounts_as_ever();
}

TEST_F(ForkedHandle, WithoutAMountIsNotUnmountedEither)
{
    _ixfs_no_mount(handle.get(), EC_HELPER_FAILED);
    in_silent_child([this](ChildChecks& checks) {
        checks.expect(ixfs_unmount(handle.get()) == EC_INVALID_PARAMETER, "the result is 20");
        checks.expect(record_view::last_status(handle.get()) == EC_HELPER_FAILED,
                      "the last status is not cleared");
    });
}

TEST_F(ForkedHandle, GetsNoContext)
{
    in_silent_child([this](ChildChecks& checks) {
        checks.expect(recreate() == -1, "the result is -1");
        checks.expect(!record_view::has_mount(handle.get()), "nothing is attached");
        checks.expect(record_view::last_status(handle.get()) == EC_OK, "nothing is recorded");
    });
}

TEST_F(ForkedHandle, ThatIsInvalidToo)
{
    in_forked_child([this](ChildChecks& checks) {
        record_view::mark_of(handle.get())[0] = 'x';
        checks.expect(mount() == nullptr, "ixfs_mount returns null");
        checks.expect(recreate() == -1, "the context's result is -1");
        checks.expect(ixfs_unmount(handle.get()) == EC_INVALID_PARAMETER, "unmount returns 20");
        ixfs_term(handle.get());
        checks.expect(_ixfs_is_invalid(handle.get()) == 1, "ixfs_term leaves it alone");
    });
}

TEST_F(ForkedHandle, LocksNoView)
{
    _ixfs_view_t* const view = _ixfs_view_create(handle.get());
    in_silent_child([&](ChildChecks& checks) {
        checks.expect(lock(handle, view) == 0, "the result is 0");
        checks.expect(view->lock == nullptr && !view->lock_held, "the view has no lock");
        checks.expect(std::strcmp(base_name, "unset") == 0, "there is no base name");
    });
}

TEST_F(ForkedHandle, IsNotWatchedByItsMaker)
{
    given_mount(mounts_image());
    in_silent_child([this](ChildChecks& checks) {
        void* const result = _ixfs_mount_validate_thread(record_view::mount_of(handle.get()));
        checks.expect(reinterpret_cast<std::intptr_t>(result) == 1, "the result is 1, at once");
    });
    expect_unmounts_as_ever();
}

TEST_F(ForkedHandle, EndsWithoutAWord)
{
    in_silent_child([this](ChildChecks&) { handle.reset(); });
}

TEST_F(ForkedHandle, EndsAndLeavesTheMount)
{
    given_mount(mounts_image());
    in_silent_child([this](ChildChecks&) { handle.reset(); });
    expect_unmounts_as_ever();
}

TEST_F(ForkedHandle, EndsAndLeavesTheContextsMutex)
{
    ASSERT_EQ(recreate(), 0);
    ASSERT_EQ(semaphore_sets().size(), 1U);
    log.take();
    in_silent_child([this](ChildChecks&) { handle.reset(); });
    handle.reset();
    EXPECT_EQ(log.take(),
              Lines{unmount_says.error("ERR - invalid parameter, missing mount point")});
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(ForkedHandle, RecordOfAMountEndsAndLeavesTheMount)
{
    given_mount(mounts_image());
    in_silent_child([this](ChildChecks& checks) {
        _ixfs_no_mount(handle.get(), EC_HELPER_FAILED);
        checks.expect(!record_view::has_mount(handle.get()), "the record is gone");
        checks.expect(record_view::last_status(handle.get()) == EC_OK, "nothing is recorded");
    });
    in_silent_child([this](ChildChecks& checks) {
        _ixfs_no_unmount(handle.get(), record_view::mount_of(handle.get()), EC_HELPER_FAILED);
        checks.expect(!record_view::has_mount(handle.get()), "the record is gone");
        checks.expect(record_view::last_status(handle.get()) == EC_OK, "nothing is recorded");
    });
    in_silent_child(
        [this](ChildChecks&) { _ixfs_mount_delete(record_view::mount_of(handle.get())); });
    expect_unmounts_as_ever();
}

// Keeps the validation thread in a callback, which it makes with the library's lock held.
class BlockedCallback
{
public:
    BlockedCallback() { blocked_.lock(); }
    ~BlockedCallback() { let_go(); }
    BlockedCallback(const BlockedCallback&) = delete;
    BlockedCallback& operator=(const BlockedCallback&) = delete;

    static void callback(int severity, const char* tag, const char* message)
    {
        LogRecorder::callback(severity, tag, message);
        if (std::strcmp(message, "INF - starting validate thread\n") == 0)
            const std::lock_guard<std::mutex> wait(blocked_);
    }

    void let_go()
    {
        if (std::exchange(blocks_, false))
            blocked_.unlock();
    }

private:
    static inline std::mutex blocked_;
    bool blocks_ = true;
};

TEST_F(ForkedHandle, EndsWhileItsThreadIsInTheCallback)
{
    BlockedCallback blocked;
    handle.reset(ixfs_init(0, nullptr, BlockedCallback::callback, nullptr, nullptr));
    given_mount(mounts_image());
    in_silent_child([this](ChildChecks&) { handle.reset(); });
    blocked.let_go();
    expect_unmounts_as_ever();
}

TEST_F(ForkedHandle, EndsWhileItsThreadHasTheStopEventLocked)
{
    std::mutex locked;
    std::unique_lock<std::mutex> lock(locked);
    std::atomic<bool> waits{false};
    const auto wait = interpose::on_pthread_cond_timedwait([&](auto...) -> std::optional<int> {
        waits = true;
        const std::lock_guard<std::mutex> until_let_go(locked);
        return std::nullopt;
    });
    given_mount(mounts_image());
    look_until([&] { return waits.load(); });
    in_silent_child([this](ChildChecks&) { handle.reset(); });
    lock.unlock();
    expect_unmounts_as_ever();
}

TEST_F(ForkedHandle, EndsAfterTheThreadOfItsMount)
{
    given_mount(mounts_image());
    ASSERT_TRUE(record_view::signal_event(handle.get()));
    ASSERT_TRUE(log.wait_for("INF - stopping validate thread, errno = 0\n"));
    in_silent_child([this](ChildChecks&) { handle.reset(); });
    expect_unmounts_as_ever();
}

TEST_F(ForkedHandle, ViewEndsAndLeavesItsLock)
{
    _ixfs_view_t* const view = create_locked_view();
    in_silent_child([&](ChildChecks& checks) {
        _ixfs_view_delete(handle.get(), view);
        _ixfs_view_t* const next = _ixfs_view_create(handle.get());
        checks.expect(next != nullptr && next->next == nullptr, "the view is out of the list");
    });
    const std::string number_zero = base_name;
    const Handle other = make_handle();
    EXPECT_EQ(number_zero.back(), '0');
    EXPECT_EQ(lock(other, _ixfs_view_create(other.get())), 1);
    EXPECT_EQ(std::string(base_name).back(), '1') << "the lock is held still";

    // the other's try has taken the set of this lock away, whoever holds it
    _ixfs_view_delete(handle.get(), view);
    _ixfs_view_delete(other.get(), _ixfs_view_create(other.get())->next);
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(ForkedHandle, LocksAndEndsNoLockOfAView)
{
    record_view::set_inherited(handle.get(), true);
    _ixfs_view_t* const view = _ixfs_view_create(handle.get());
    EXPECT_EQ(lock(handle, view), 0);
    EXPECT_STREQ(base_name, "unset");
    _ixfs_view_delete(handle.get(), view);
    EXPECT_EQ(log.lines(), Lines{});
    EXPECT_EQ(semaphore_sets().size(), 0U);
    record_view::set_inherited(handle.get(), false);
}

TEST_F(ForkedHandle, EndsWithViewsAndLeavesTheirLocks)
{
    create_locked_view();
    _ixfs_view_create(handle.get());
    given_mount(mounts_image());
    in_silent_child([this](ChildChecks&) { handle.reset(); });
    EXPECT_EQ(semaphore_sets().size(), 2U) << "the view's and the mount's";
    handle.reset();
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

TEST_F(ForkedHandle, EndsInTheMiddleOfAMountThatHoldsTheMutex)
{
    bool forked = false;
    const LineWatch watch(handle, [&](const std::string&, const std::string& message) {
        if (message == "INF - response - EXIT_STATUS=0\n" && !std::exchange(forked, true))
            in_silent_child([this](ChildChecks&) { ixfs_term(handle.get()); });
    });
    given_mount(mounts_image());
    EXPECT_TRUE(forked);
    expect_unmounts_as_ever();
}

TEST_F(ForkedHandle, ServesNoGrandchildEither)
{
    given_mount(mounts_image());
    in_silent_child([this](ChildChecks& checks) {
        ChildProcess grandchild(STDERR_FILENO, [this](ChildProcess::Parent&) {
            ChildChecks its_checks;
            its_checks.expect(ixfs_unmount(handle.get()) == EC_INVALID_PARAMETER, "unmount is 20");
            handle.reset();
            return its_checks.failed();
        });
        checks.expect(grandchild.wait() == 0, "the grandchild's checks hold");
    });
    expect_unmounts_as_ever();
}

// The first process of a PID namespace, where each has the number 1.
template <typename Body>
int first_of_pid_namespace(const Body& body)
{
    if (unshare(CLONE_NEWPID) != 0)
        return -1;
    ChildProcess child(STDERR_FILENO, [&body](ChildProcess::Parent&) { return body(); });
    return child.wait();
}

TEST_F(ForkedHandle, ServesNoChildWithTheSameProcessId)
{
    in_forked_child([](ChildChecks& checks) {
        const int result = first_of_pid_namespace([] {
            ChildChecks inner;
            const Handle made = make_handle();
            inner.expect(ixfs_unmount(made.get()) == EC_OK, "the maker's own calls are answered");
            const pid_t maker = getpid();
            const int last = first_of_pid_namespace([&] {
                ChildChecks innermost;
                innermost.expect(getpid() == maker, "the child has its maker's number");
                innermost.expect(ixfs_unmount(made.get()) == EC_INVALID_PARAMETER, "it gets 20");
                return innermost.failed();
            });
            inner.expect(last == 0, "the child's checks hold");
            return inner.failed();
        });
        checks.expect(result == 0, "the maker's checks hold");
    });
}

TEST_F(ForkedHandle, ServesNoChildOfAForkThatTheCLibraryDoesNotTellOf)
{
    const pid_t child = _Fork();
    if (child == 0) {
        look_for_no_leaks();
        _exit(ixfs_unmount(handle.get()) == EC_INVALID_PARAMETER ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST_F(ForkedHandle, DoesNotKeepTheChildFromHandlesOfItsOwn)
{
    given_mount(mounts_image());
    in_forked_child([this](ChildChecks& checks) {
        leave_watch_to_its_thread();
        handle.reset();
        Handle own = make_handle();
        helper.answers({mounts_image(), {"EXIT_STATUS=0"}});
        const char* const mount_point =
            ixfs_mount(own.get(), mount_cred, unmount_cred, port, server, 60, nullptr);
        checks.expect(mount_point != nullptr && mount_point == image.path(), "it mounts");
        checks.expect(lock(own, _ixfs_view_create(own.get())) == 1, "it locks a view");
        checks.expect(ixfs_unmount(own.get()) == EC_OK, "it unmounts");
        checks.expect(ixfs_last_error(own.get()) == EC_OK, "its status is its own");
        own.reset();
        checks.expect_no_leaks();
    });
    helper.answers({{"EXIT_STATUS=0"}});
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(semaphore_sets().size(), 0U);
}

// A thread that forks, and how far it is.
class ForkingThread
{
public:
    ForkingThread() : thread_([this] { run(); }) {}
    ~ForkingThread() { thread_.join(); }
    ForkingThread(const ForkingThread&) = delete;
    ForkingThread& operator=(const ForkingThread&) = delete;

    bool has_forked() const { return has_forked_; }

    // Whether it sleeps within fork().
    bool waits() const
    {
        const int thread = begun_by_;
        std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
        std::string line;
        while (thread != 0 && std::getline(status, line)) {
            if (line.rfind("State:", 0) == 0)
                return line.find("sleeping") != std::string::npos;
        }
        return false;
    }

private:
    void run()
    {
        [[maybe_unused]] static const int tells = pthread_atfork(begin, nullptr, nullptr);
        const pid_t child = fork();
        if (child == 0)
            _exit(0);
        has_forked_ = true;
        waitpid(child, nullptr, 0);
    }

    static void begin() { begun_by_ = gettid(); }

    static inline std::atomic<int> begun_by_{0};
    std::atomic<bool> has_forked_{false};
    std::thread thread_; // the last member: it uses the others
};

TEST_F(ForkedHandle, IsNotMadeWhileTheHelperStarts)
{
    std::optional<ForkingThread> forks;
    const auto start = interpose::on_popen([&](auto...) -> std::optional<FILE*> {
        if (!forks) {
            forks.emplace();
            look_until([&] { return forks->waits() || forks->has_forked(); });
            EXPECT_FALSE(forks->has_forked());
        }
        return std::nullopt;
    });
    given_mount(mounts_image());
    look_until([&] { return forks->has_forked(); });
}

// Leaks are for the sanitizer to see.
TEST_F(ForkedHandle, EndsWithAllThatItOwns)
{
    record_view::add_name_group(handle.get(), "group", {"name"});
    ASSERT_EQ(recreate(), 0);
    create_locked_view()->image_list =
        static_cast<_ixfs_image_list_t*>(calloc(1, sizeof(_ixfs_image_list_t)));
    _ixfs_view_create(handle.get());
    in_silent_child([this](ChildChecks&) { handle.reset(); });
}

} // namespace
