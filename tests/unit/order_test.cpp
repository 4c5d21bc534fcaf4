// The order of what is done, where neither the log nor a result shows it.
#include "descriptor_test.h"
#include "line_watch.h"
#include "mount_fixture.h"
#include "process_mutex_set.h"
#include "process_state.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/sem.h>

namespace
{

using Events = std::vector<std::string>;

class Order : public MountTest
{
protected:
    int lock(_ixfs_view_t* view)
    {
        char base_name[256];
        return _ixfs_view_lock(handle.get(), view, 1, base_name, sizeof(base_name));
    }
};

// Whether the one lock of the host is held, free or gone.
std::string mutex_state()
{
    const std::vector<SemaphoreSet> sets = semaphore_sets();
    if (sets.size() != 1)
        return std::to_string(sets.size()) + " locks";
    return semctl(sets[0].id, process_mutex_set::lock, GETVAL) == 0 ? "held" : "free";
}

// ---- The end of a handle ------------------------------------------------------------------------

TEST_F(Order, LocksOfTheViewsAreGoneBeforeTheHandlesEndBeginsToUnmount)
{
    std::vector<std::size_t> locks;
    const LineWatch watch(handle, [&](const std::string& tag, const std::string&) {
        if (tag == "ixfs_unmount()")
            locks.push_back(semaphore_sets().size());
    });
    given_mount(mounts_image());
    ASSERT_EQ(semaphore_sets().size(), 1U) << "of the mount";
    ASSERT_EQ(lock(_ixfs_view_create(handle.get())), 1);
    ASSERT_EQ(lock(_ixfs_view_create(handle.get())), 1);
    const std::size_t locks_before = semaphore_sets().size();
    EXPECT_GT(locks_before, 1U);

    handle.reset();
    ASSERT_FALSE(locks.empty());
    EXPECT_EQ(locks, std::vector<std::size_t>(locks.size(), 1));
}

// ---- The end of a view --------------------------------------------------------------------------

template <typename Node>
Node* node_before(Node* next)
{
    auto* const node = static_cast<Node*>(std::calloc(1, sizeof(Node)));
    node->next = next;
    return node;
}

TEST_F(Order, ViewGivesUpItsLockAndThenItsListsOneAfterAnother)
{
    _ixfs_view_t* const view = _ixfs_view_create(handle.get());
    ASSERT_EQ(lock(view), 1);
    std::map<const void*, std::string> names{{view, "view"}};
    for (int i = 0; i < 2; ++i) {
        view->image_list = node_before(view->image_list);
        view->image_list_metadata = node_before(view->image_list_metadata);
        view->file_name_mapping = node_before(view->file_name_mapping);
        names[view->image_list] = "image list";
        names[view->image_list_metadata] = "metadata";
        names[view->file_name_mapping] = "file name mapping";
    }

    Events events;
    {
        const auto semctl = interpose::on_semctl([&](int, int, int command, void*) {
            if (command == IPC_RMID)
                events.emplace_back("lock");
            return std::optional<int>();
        });
        const auto free = interpose::on_free([&](void* block) {
            const auto named = names.find(block);
            if (named != names.end())
                events.push_back(named->second);
            return std::optional<int>();
        });
        _ixfs_view_delete(handle.get(), view);
    }
    EXPECT_EQ(events, (Events{"lock", "file name mapping", "file name mapping", "metadata",
                              "metadata", "image list", "image list", "view"}));
}

// ---- The copy of a descriptor -------------------------------------------------------------------

TEST_F(Order, OldDescriptorIsClosedBeforeTheNewOneIsFlushed)
{
    TempDir dir;
    dir.write("old", "RW 2048 VMFS \"vm-flat.vmdk\"\n");
    std::map<int, std::string> names;
    Events events;
    {
        const auto open = interpose::on_open([&](const char* path, int flags) {
            const int descriptor = ::open(path, flags, 0644);
            names[descriptor] = path == dir / "old" ? "old" : "new";
            return std::optional<int>(descriptor);
        });
        const auto write = interpose::on_write([&](int descriptor, const void*, std::size_t) {
            events.push_back("write " + names[descriptor]);
            return std::optional<ssize_t>();
        });
        const auto close = interpose::on_close([&](int descriptor) {
            events.push_back("close " + names[descriptor]);
            return std::optional<int>();
        });
        EXPECT_EQ(_ixfs_copy_desc(handle.get(), (dir / "old").c_str(), (dir / "new").c_str(),
                                  "vm1-flat.vmdk"),
                  1);
    }
    ASSERT_GE(events.size(), 3U);
    events.erase(events.begin(), events.end() - 3); // the lines; what is left to write comes last
    EXPECT_EQ(events, (Events{"close old", "write new", "close new"}));
}

// ---- The mount mutex ----------------------------------------------------------------------------

TEST_F(Order, MountMutexIsReleasedBeforeTheMountIsTold)
{
    Events events;
    const LineWatch watch(handle, [&](const std::string& tag, const std::string& message) {
        if (tag == "ixfs_mount()" && message.find(image.path()) != std::string::npos)
            events.push_back(mutex_state() + " at " + message.substr(0, message.find("/")));
    });
    helper.answers({{"MOUNTPOINT=" + image.path(), "EXIT_STATUS=0"}});
    ASSERT_NE(mount(), nullptr);
    EXPECT_EQ(events, (Events{"held at INF - response - MOUNTPOINT=",
                              "held at MOUNTPOINT= MOUNTPOINT=", "free at INF - mount point - "}));
}

TEST_F(Order, LocalUnmountIsDoneUnderTheMountMutex)
{
    given_mount(mounts_image(), {{"EXIT_STATUS=3"}});
    Events events;
    {
        const auto umount2 = interpose::on_umount2([&](const char*, int) {
            events.push_back(mutex_state() + " at the unmount");
            return std::optional<int>();
        });
        const auto rmdir = interpose::on_rmdir([&](const char* path) {
            if (path == image.path())
                events.push_back(mutex_state() + " at the deletion");
            return std::optional<int>();
        });
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_HELPER_FAILED);
    }
    events.push_back(mutex_state() + " at the end");
    EXPECT_EQ(events,
              (Events{"held at the unmount", "held at the deletion", "0 locks at the end"}));
}

TEST_F(Order, HelperHasEndedBeforeTheMountPointIsDeleted)
{
    given_mount(mounts_image_with_path());
    Events events;
    {
        const auto pclose = interpose::on_pclose([&](FILE*) {
            events.push_back("the helper's end is waited for");
            return std::optional<int>();
        });
        const auto rmdir = interpose::on_rmdir([&](const char* path) {
            if (path == image.path())
                events.push_back("the mount point is deleted");
            return std::optional<int>();
        });
        EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
    }
    EXPECT_EQ(events, (Events{"the helper's end is waited for", "the mount point is deleted"}));
}

} // namespace
