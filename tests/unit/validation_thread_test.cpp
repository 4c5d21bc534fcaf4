// The validation thread: its passes, its end, and that nobody waits for it.
#include "fake_time.h"
#include "held_threads.h"
#include "line_watch.h"
#include "memory_shortage.h"
#include "mount_fixture.h"
#include "record_view.h"

#include <ace/Event.h>
#include <ace/OS_Thread_Adapter.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <future>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace
{

const Line starting = thread_says.info("INF - starting validate thread");
const Line validating = thread_says.info("INF - validating mount");
const Line stopping = thread_says.info("INF - stopping validate thread, errno = 0");

class ValidationThread : public MountTest
{
protected:
    // The lines of a pass that finds nothing.
    Lines failed_pass() const
    {
        return Lines{validating, line_of_validation(image.path())} +
               validate_says.error("ERR - ACE_OS::stat(" + image.path() +
                                   "/backups) failed, error = 2");
    }

    // Mounts, without a look into the mount.
    void given_unvalidated_mount()
    {
        helper.answers({mounts_image(), {"EXIT_STATUS=0"}});
        ASSERT_NE(mount(), nullptr);
    }
};

TEST_F(ValidationThread, SignalledBeforeItsFirstPassEndsWithoutOne)
{
    HeldThreads threads;
    given_unvalidated_mount();
    threads.let_go();
    ASSERT_TRUE(log.wait_for("INF - starting validate thread\n"));
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    ASSERT_TRUE(threads.wait_for_end());
    EXPECT_EQ(threads.started(), 1);
    EXPECT_EQ(log.lines_elsewhere(), (Lines{starting, stopping}));
}

TEST_F(ValidationThread, ValidatesEachTimeThatItsWaitTimesOut)
{
    HeldThreads threads;
    const ExpiredEventWaits expired(2);
    given_unvalidated_mount();
    threads.let_go();
    ASSERT_TRUE(log.wait_for("INF - validating mount\n", 2));
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    ASSERT_TRUE(threads.wait_for_end());

    Lines lines = log.lines_elsewhere();
    ASSERT_EQ(lines.size(), 6U);
    EXPECT_EQ(lines.back().message.find("INF - stopping validate thread, errno = "), 0U);
    lines.pop_back();
    EXPECT_EQ(lines, (Lines{starting, validating, line_of_validation(image.path()), validating,
                            line_of_validation(image.path())}));
    EXPECT_LE(expired.waits(), 3);
}

// The clock that a wait's end is told by, in microseconds, as finely as the end is.
long long microseconds(const timespec& time)
{
    return time.tv_sec * 1'000'000LL + time.tv_nsec / 1000;
}

long long microseconds_now()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return microseconds(now);
}

TEST_F(ValidationThread, WaitsForThreeHundredSecondsEachTimeAlsoAfterAFailedPass)
{
    constexpr long long length = 300'000'000;
    std::filesystem::remove(image / "backups");
    std::atomic<int> waits{0};
    // A wait is computed after the thread's line before it, and before the wait itself.
    long long at_line = 0;
    const LineWatch watch(handle, [&](const std::string& tag, const std::string&) {
        if (tag == "_ixfs_mount_validate_thread()" || tag == "_ixfs_mount_validate()")
            at_line = microseconds_now();
    });
    const auto wait = interpose::on_pthread_cond_timedwait(
        [&](pthread_cond_t*, pthread_mutex_t*, const timespec* until) -> std::optional<int> {
            if (++waits > 3)
                return std::nullopt;
            EXPECT_GE(microseconds(*until), at_line + length);
            EXPECT_LE(microseconds(*until), microseconds_now() + length);
            return ETIMEDOUT;
        });
    HeldThreads threads;
    given_unvalidated_mount();
    threads.let_go();
    const std::string failure = failed_pass().back().message;
    ASSERT_TRUE(log.wait_for(failure, 3));
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    ASSERT_TRUE(threads.wait_for_end());

    Lines lines = log.lines_elsewhere();
    lines.pop_back();
    EXPECT_EQ(lines, Lines{starting} + failed_pass() + failed_pass() + failed_pass());
}

TEST_F(ValidationThread, WaitsForThreeHundredSecondsToTheNanosecond)
{
    given_mount(mounts_image());
    constexpr time_t now = 1'000'000;
    std::vector<std::pair<time_t, long>> ends;
    {
        const FakeClock clock(now);
        const auto wait = interpose::on_pthread_cond_timedwait(
            [&](pthread_cond_t*, pthread_mutex_t*, const timespec* until) {
                ends.emplace_back(until->tv_sec, until->tv_nsec);
                return std::optional<int>(EINVAL);
            });
        EXPECT_EQ(_ixfs_mount_validate_thread(record_view::mount_of(handle.get())), nullptr);
    }
    ASSERT_FALSE(ends.empty());
    EXPECT_EQ(ends.back(), std::pair(now + 300, 0L));
}

TEST_F(ValidationThread, EndsWhenItsWaitFailsOtherwise)
{
    const auto wait = interpose::on_pthread_cond_timedwait.returns(EINVAL);
    HeldThreads threads;
    given_unvalidated_mount();
    threads.let_go();
    ASSERT_TRUE(threads.wait_for_end());
    EXPECT_EQ(log.lines_elsewhere(),
              Lines{starting} + thread_says.info("INF - stopping validate thread, errno = 22"));
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
}

TEST_F(ValidationThread, WhoseHandleIsTheNumberOfAnOpenDescriptorLeavesThatOpen)
{
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_NE(descriptor, -1);
    {
        const auto create = interpose::on_pthread_create(
            [&](pthread_t* thread, auto... arguments) -> std::optional<int> {
                const int result = pthread_create(thread, arguments...);
                *thread = static_cast<pthread_t>(descriptor);
                return result;
            });
        given_unvalidated_mount();
        ASSERT_TRUE(log.wait_for("INF - starting validate thread\n"));
    }
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(close(descriptor), 0);
}

TEST_F(ValidationThread, IsDetachedSoThatItsStackGoesWithIt)
{
    int state = PTHREAD_CREATE_JOINABLE;
    const auto create = interpose::on_pthread_create(
        [&](pthread_t*, const pthread_attr_t* attributes, auto...) -> std::optional<int> {
            EXPECT_EQ(pthread_attr_getdetachstate(attributes, &state), 0);
            return std::nullopt;
        });
    given_unvalidated_mount();
    EXPECT_EQ(state, PTHREAD_CREATE_DETACHED);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
}

TEST_F(ValidationThread, ThatStartsAfterTheUnmountEndsAtOnce)
{
    HeldThreads threads;
    given_unvalidated_mount();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_EQ(log.lines_elsewhere(), Lines{});
    threads.let_go();
    ASSERT_TRUE(threads.wait_for_end());
    EXPECT_EQ(log.lines_elsewhere(), (Lines{starting, stopping}));
}

TEST_F(ValidationThread, ThatStartsAfterTheNextMountLeavesThatAlone)
{
    HeldThreads threads;
    given_unvalidated_mount();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    given_unvalidated_mount();
    threads.let_go();
    ASSERT_TRUE(log.wait_for("INF - starting validate thread\n", 2));
    ASSERT_TRUE(log.wait_for("INF - stopping validate thread, errno = 0\n", 1));
    EXPECT_EQ(log.with_message("INF - stopping validate thread, errno = 0\n").size(), 1U);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
}

TEST_F(ValidationThread, ThatStartsAfterTheHandlesEndSaysNothing)
{
    HeldThreads threads;
    given_unvalidated_mount();
    handle.reset();
    threads.let_go();
    ASSERT_TRUE(threads.wait_for_end());
    EXPECT_EQ(log.lines_elsewhere(), Lines{});
}

// A look into the mount, on another thread than this one, that hangs until it is let go. Holds
// on_stat and on_pthread_cond_timedwait.
class HungPass
{
public:
    explicit HungPass(const std::string& mount_point) : path_(mount_point + "/backups") {}
    ~HungPass() { let_go(); }

    bool wait_until_hung()
    {
        return hung_.get_future().wait_for(std::chrono::seconds(30)) == std::future_status::ready;
    }

    // Returns whether it was still hung.
    bool let_go()
    {
        if (let_go_)
            return false;
        let_go_ = true;
        gate_.set_value();
        return !gave_up_;
    }

private:
    std::optional<int> look(const char* path)
    {
        if (path != path_ || std::this_thread::get_id() == mounting_)
            return std::nullopt;
        hung_.set_value();
        gave_up_ =
            gate_.get_future().wait_for(std::chrono::seconds(30)) != std::future_status::ready;
        errno = EIO;
        return -1;
    }

    const std::string path_;
    const std::thread::id mounting_ = std::this_thread::get_id();
    std::promise<void> hung_;
    std::promise<void> gate_;
    std::atomic<bool> gave_up_{false};
    bool let_go_ = false;
    ExpiredEventWaits expired_{1};
    decltype(interpose::on_stat)::Hook stat_ =
        interpose::on_stat([this](const char* path, struct stat*) { return look(path); });
};

TEST_F(ValidationThread, ThatHangsIsNotWaitedForByTheUnmount)
{
    HungPass pass(image.path());
    HeldThreads threads;
    given_unvalidated_mount();
    threads.let_go();
    ASSERT_TRUE(pass.wait_until_hung());
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    EXPECT_TRUE(pass.let_go());
    ASSERT_TRUE(threads.wait_for_end());

    Lines lines = log.lines_elsewhere();
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines.back().message.find("INF - stopping validate thread, errno = "), 0U);
    lines.pop_back();
    EXPECT_EQ(lines, Lines({starting, validating, line_of_validation(image.path())}) +
                         validate_says.error("ERR - ACE_OS::stat(" + image.path() +
                                             "/backups) failed, error = 5"));
}

TEST_F(ValidationThread, ThatHangsIsNotWaitedForByTheHandlesEndAndSaysNothingMore)
{
    HungPass pass(image.path());
    HeldThreads threads;
    given_unvalidated_mount();
    threads.let_go();
    ASSERT_TRUE(pass.wait_until_hung());
    handle.reset();
    EXPECT_TRUE(pass.let_go());
    ASSERT_TRUE(threads.wait_for_end());
    EXPECT_EQ(log.lines_elsewhere(),
              (Lines{starting, validating, line_of_validation(image.path())}));
}

// A callback that dawdles in the thread's first line until the handle's end has begun.
namespace dawdling
{
std::promise<void>* entered;
std::atomic<bool> ending;
std::atomic<bool> left;

void callback(int, const char* tag, const char*)
{
    if (std::string(tag) != "_ixfs_mount_validate_thread()" || left)
        return;
    entered->set_value();
    while (!ending)
        std::this_thread::yield();
    for (int i = 0; i < 1000; ++i)
        std::this_thread::yield();
    left = true;
}
} // namespace dawdling

TEST_F(ValidationThread, InsideACallbackIsWaitedForByTheHandlesEnd)
{
    std::promise<void> entered;
    dawdling::entered = &entered;
    dawdling::ending = dawdling::left = false;
    handle.reset(ixfs_init(0, nullptr, dawdling::callback, nullptr, nullptr));
    HeldThreads threads;
    given_unvalidated_mount();
    threads.let_go();
    entered.get_future().wait();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK) << "which does not wait";
    EXPECT_FALSE(dawdling::left);
    dawdling::ending = true;
    handle.reset();
    EXPECT_TRUE(dawdling::left);
}

TEST_F(ValidationThread, ThatCannotBeStartedLeavesTheMountUnwatched)
{
    helper.answers({mounts_image(), {"EXIT_STATUS=0"}});
    {
        const auto create = interpose::on_pthread_create.fails(EAGAIN);
        EXPECT_STREQ(mount(), image.path().c_str());
        EXPECT_EQ(create.calls(), 1);
    }
    EXPECT_EQ(log.lines().back(),
              mount_says.error("ERR - ACE_Thread::spawn() failed, error = " +
                               std::to_string(record_view::mount(handle.get()).thread_result)));
    EXPECT_NE(record_view::mount(handle.get()).thread_result, 0);
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_OK);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
}

#ifndef IXFS_SANITIZER_DEFINES_NEW
TEST_F(ValidationThread, ForWhichMemoryIsShortLeavesTheMountUnwatched)
{
    helper.answers({mounts_image(), {"EXIT_STATUS=0"}});
    const auto threads = interpose::on_pthread_create.watch();
    {
        const MemoryShortage no_adapter(sizeof(ACE_OS_Thread_Adapter));
        EXPECT_STREQ(mount(), image.path().c_str());
        EXPECT_EQ(no_adapter.hits(), 1);
    }
    EXPECT_EQ(threads.calls(), 0);
    EXPECT_EQ(log.lines().back(), mount_says.error("ERR - ACE_Thread::spawn() failed, error = -1"));
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
}
#endif

#ifndef IXFS_SANITIZER_DEFINES_NEW
TEST_F(ValidationThread, WithoutAnEventEndsWithoutAWord)
{
    // the event, its insides, and the watch that holds it
    for (const std::size_t object :
         {sizeof(ACE_Event), sizeof(ACE_eventdata_t), record_view::watch_size}) {
        HeldThreads threads;
        helper.answers({mounts_image(), {"EXIT_STATUS=0"}});
        log.take();
        {
            bool helper_has_run = false; // what else is of that size comes before
            const auto run = interpose::on_pclose([&](FILE*) {
                helper_has_run = true;
                return std::optional<int>();
            });
            const auto no_event =
                interpose::on_allocation([&](std::size_t size) -> std::optional<void*> {
                    if (!helper_has_run || size != object)
                        return std::nullopt;
                    errno = ENOMEM;
                    return nullptr;
                });
            EXPECT_STREQ(mount(), image.path().c_str());
        }
        EXPECT_EQ(log.lines().back(), mount_says.error("ERR - ACE_Event() failed, error = 12"));
        EXPECT_FALSE(record_view::mount(handle.get()).has_event);
        threads.let_go();
        ASSERT_TRUE(threads.wait_for_end());
        EXPECT_EQ(threads.started(), 1);
        EXPECT_EQ(log.lines_elsewhere(), Lines{});
        log.take();
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
        EXPECT_EQ(log.lines(),
                  lines_before_unmount_command() +
                      lines_of_run(unmount_says, unmount_command(), {"EXIT_STATUS=0"}));
    }
}

// A sanitizer's operator delete does not come down to free, and neither does valgrind's.
bool delete_is_seen()
{
    const auto free = interpose::on_free.watch();
    ::operator delete(::operator new(1));
    return free.calls() > 0;
}

TEST_F(ValidationThread, WatchForWhichMemoryIsShortFreesTheEventThatWasMade)
{
    if (!delete_is_seen())
        GTEST_SKIP() << "operator delete is not free here";
    helper.answers({mounts_image(), {"EXIT_STATUS=0"}});
    void* event = nullptr; // the last block of its size before the watch is wanted
    bool watch_was_wanted = false;
    bool is_freed = false;
    {
        const auto allocation =
            interpose::on_allocation([&](std::size_t size) -> std::optional<void*> {
                if (size == record_view::watch_size) {
                    watch_was_wanted = true;
                    errno = ENOMEM;
                    return nullptr;
                }
                if (size != sizeof(ACE_Event) || watch_was_wanted)
                    return std::nullopt;
                event = ::operator new(size);
                return event;
            });
        const auto free = interpose::on_free([&](void* block) -> std::optional<int> {
            is_freed = is_freed || (watch_was_wanted && block == event);
            errno = EINVAL; // which the line about the failure must not show
            return 0;
        });
        EXPECT_STREQ(mount(), image.path().c_str());
    }
    EXPECT_EQ(log.lines_here().back(), mount_says.error("ERR - ACE_Event() failed, error = 12"));
    EXPECT_TRUE(is_freed);
}
#endif

TEST_F(ValidationThread, ThatCannotBeSignalledIsReportedAndTheUnmountGoesOn)
{
    std::promise<pthread_cond_t*> waiting;
    bool told = false;
    const auto wait = interpose::on_pthread_cond_timedwait(
        [&](pthread_cond_t* event, pthread_mutex_t*, const timespec*) -> std::optional<int> {
            if (!std::exchange(told, true))
                waiting.set_value(event);
            return std::nullopt;
        });
    HeldThreads threads;
    given_unvalidated_mount();
    threads.let_go();
    pthread_cond_t* const event = waiting.get_future().get();
    log.take();
    {
        // Once: the record's deletion tells the thread again.
        bool failed = false;
        const auto signal = interpose::on_pthread_cond_broadcast(
            [&](pthread_cond_t* condition) -> std::optional<int> {
                if (condition != event || std::exchange(failed, true))
                    return std::nullopt;
                return EINVAL;
            });
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    }
    Lines expected = lines_before_unmount_command();
    expected.insert(expected.begin() + 1,
                    unmount_says.error("ERR - ACE_Event::signal() failed, error = 22"));
    EXPECT_EQ(log.lines_here(),
              expected + lines_of_run(unmount_says, unmount_command(), {"EXIT_STATUS=0"}));
}

// Its function, called directly

TEST_F(ValidationThread, FunctionReturnsOneWithoutARecordOrAnEvent)
{
    void* const one = reinterpret_cast<void*>(1);
    EXPECT_EQ(_ixfs_mount_validate_thread(nullptr), one);
    ASSERT_EQ(
        ixfs_recreate_minimal_context(handle.get(), mount_cred, unmount_cred, port, server, 60, ""),
        0);
    log.take();
    ASSERT_FALSE(record_view::mount(handle.get()).has_event);
    EXPECT_EQ(_ixfs_mount_validate_thread(record_view::mount_of(handle.get())), one);
    EXPECT_EQ(log.lines(), Lines{});
}

TEST_F(ValidationThread, FunctionReturnsNullOnceTheEventIsSignalled)
{
    given_mount(mounts_image());
    ASSERT_TRUE(record_view::signal_event(handle.get()));
    errno = 0;
    EXPECT_EQ(_ixfs_mount_validate_thread(record_view::mount_of(handle.get())), nullptr);
    EXPECT_EQ(log.lines_here(), (Lines{starting, stopping}));
}

} // namespace
