// Children of a process that has an image mounted, or is about to. Whatever they do to its handle,
// the mount and the mutex are their parent's.
#include "forked_child.h"
#include "loopback_test.h"
#include "process_mutex_set.h"
#include "record_view.h"
#include "watchdog.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <thread>

namespace fs = std::filesystem;

using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

class ForkWhileMounted : public MountingTest
{
protected:
    void TearDown() override
    {
        EXPECT_THAT(loopback.overlaps(), IsEmpty());
        MountingTest::TearDown();
    }

    void expect_mounted() const
    {
        EXPECT_EQ(server.mounts(), 1);
        EXPECT_TRUE(fs::equivalent(server.mount_point + "/" + server.image,
                                   server.root + "/" + server.image));
    }

    // Expects that the parent's mount has outlived its children, and unmounts it.
    void expect_unmounts_as_ever()
    {
        expect_mounted();
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
        EXPECT_THAT(loopback.calls(), ElementsAre(mount_call(server), unmount_call(server)));
        EXPECT_FALSE(fs::exists(server.mount_point));
        EXPECT_THAT(semaphore_sets(), IsEmpty());
    }

    // A body for a child that ends the handle and then itself, with the program's own clean-up.
    ForkedBody end_and_exit()
    {
        return [this](ChildChecks&) {
            if (record_view::has_mount(handle.get()))
                leave_to_its_thread(record_view::watch_of(handle.get()));
            handle.reset();
            std::exit(0); // where leaks are looked for, too
        };
    }

    Watchdog watchdog{std::chrono::seconds(120)};
};

TEST_F(ForkWhileMounted, ChildEndsTheHandle)
{
    ASSERT_NE(mount(), nullptr);
    const auto locks = process_mutex_set::values_of_all();
    in_forked_child([this](ChildChecks&) { handle.reset(); });
    in_forked_child(end_and_exit());
    EXPECT_EQ(process_mutex_set::values_of_all(), locks);
    expect_unmounts_as_ever();
}

TEST_F(ForkWhileMounted, ChildUnmountsInVain)
{
    ASSERT_NE(mount(), nullptr);
    const auto locks = process_mutex_set::values_of_all();
    in_forked_child([this](ChildChecks& checks) {
        checks.expect(ixfs_unmount(handle.get()) == EC_INVALID_PARAMETER, "the result is 20");
        checks.expect(mount() == nullptr, "a mount fails");
        checks.expect(server.mounts() == 1, "the image is mounted still");
    });
    EXPECT_EQ(process_mutex_set::values_of_all(), locks);
    expect_unmounts_as_ever();
}

TEST_F(ForkWhileMounted, ChildMountsByAHandleOfItsOwn)
{
    const SampleServer other("other");
    ASSERT_NE(mount(), nullptr);
    in_forked_child([&](ChildChecks& checks) {
        handle.reset();
        const Handle own = make_handle();
        checks.expect(mount(own, other) != nullptr, "it mounts");
        checks.expect(other.mounts() == 1, "the other image is there");
        checks.expect(ixfs_unmount(own.get()) == EC_OK, "it unmounts");
        checks.expect(other.mounts() == 0, "the other image is gone");
    });
    expect_mounted();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
}

TEST_F(ForkWhileMounted, ChildOutlivesTheMount)
{
    ASSERT_NE(mount(), nullptr);
    ChildProcess child(STDERR_FILENO, [this](ChildProcess::Parent& parent) {
        parent.pause();
        handle.reset();
        return 0;
    });
    child.wait_for_pause();
    expect_unmounts_as_ever();
    ASSERT_NE(mount(), nullptr);
    child.go_on();
    EXPECT_EQ(child.wait(), 0);
    expect_mounted();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
}

bool a_process_waits()
{
    const auto sets = semaphore_sets();
    return sets.size() == 1 && semctl(sets.front().id, process_mutex_set::lock, GETNCNT) == 1;
}

TEST_F(ForkWhileMounted, ChildEndsTheHandleInTheMiddleOfTheMount)
{
    const SampleServer other("other");
    HangingCall hanging;
    std::thread mounts([this] { EXPECT_NE(mount(), nullptr); });
    hanging.wait_until_hung();
    const auto locks = process_mutex_set::values_of_all();
    in_forked_child([this](ChildChecks&) { handle.reset(); });
    in_forked_child([](ChildChecks&) {}); // without a word to the library
    EXPECT_EQ(process_mutex_set::values_of_all(), locks);

    ChildProcess next(STDERR_FILENO, [&](ChildProcess::Parent&) {
        handle.reset();
        const Handle own = make_handle();
        const bool mounted = mount(own, other) != nullptr;
        return mounted && ixfs_unmount(own.get()) == EC_OK ? 0 : 1;
    });
    look_until([&] { return a_process_waits() || next.has_ended(); });
    EXPECT_FALSE(next.has_ended()) << "the mutex is held by the parent still";
    hanging.let_go();
    mounts.join();
    EXPECT_EQ(next.wait(), 0);
    expect_mounted();
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
}

} // namespace
