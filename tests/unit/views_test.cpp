#include "handle_test.h"
#include "interpose.h"
#include "process_state.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include <malloc.h>
#include <sys/ipc.h>

namespace
{

// What a test hands to the library to free. All of it is too large for the allocator to keep freed
// pieces aside, so that bytes_in_use() tells.
constexpr std::size_t large = 64 << 10;

void* large_block()
{
    return calloc(1, large);
}

std::size_t bytes_in_use()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

template <typename Node>
Node* node(Node* next)
{
    auto* const made = static_cast<Node*>(large_block());
    made->next = next;
    return made;
}

// A list of three, in whose nodes some owned pointers are null.
template <typename Node>
Node* list_of_three()
{
    Node* const none_owned = node<Node>(nullptr);
    Node* const first_owned = node(none_owned);
    first_owned->owned[0] = large_block();
    Node* const all_owned = node(first_owned);
    for (void*& owned : all_owned->owned)
        owned = large_block();
    return all_owned;
}

// An address in a field that a node does not own: freeing it would end the program.
template <typename Node>
void set_data(Node* head)
{
    for (Node* node = head; node != nullptr; node = node->next) {
        for (uint64_t& data : node->data)
            data = 0x1001;
    }
}

_ixfs_image_list_t* image_list()
{
    auto* const list = node(node(node<_ixfs_image_list_t>(nullptr)));
    set_data(list);
    return list;
}

_file_name_link_mapping_t* mapping_list()
{
    auto* const list = list_of_three<_file_name_link_mapping_t>();
    set_data(list);
    return list;
}

class Views : public HandleTest
{
protected:
    _ixfs_view_t* create() { return _ixfs_view_create(handle.get()); }
    void remove(_ixfs_view_t* view) { _ixfs_view_delete(handle.get(), view); }

    // The head of the handle's list.
    _ixfs_view_t* head()
    {
        _ixfs_view_t* const new_head = create();
        _ixfs_view_t* const old_head = new_head->next;
        remove(new_head);
        return old_head;
    }

    _ixfs_view_t* create_locked()
    {
        _ixfs_view_t* const view = create();
        char base_name[256];
        EXPECT_EQ(_ixfs_view_lock(handle.get(), view, 1, base_name, sizeof(base_name)), 1);
        log.take();
        return view;
    }
};

TEST_F(Views, NewViewIsEmptyAndUnlocked)
{
    const _ixfs_view_t* const view = create();
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view->lock, nullptr);
    EXPECT_FALSE(view->lock_held);
    EXPECT_EQ(view->reserved_state, 0);
    EXPECT_EQ(view->image_list, nullptr);
    EXPECT_EQ(view->image_list_metadata, nullptr);
    EXPECT_EQ(view->file_name_mapping, nullptr);
    EXPECT_EQ(view->prev, nullptr);
    EXPECT_EQ(view->next, nullptr);
    EXPECT_EQ(log.take(), Lines{});
}

TEST_F(Views, LatestViewIsTheHead)
{
    _ixfs_view_t* const a = create();
    _ixfs_view_t* const b = create();
    EXPECT_EQ(head(), b);
    EXPECT_EQ(b->prev, nullptr);
    EXPECT_EQ(b->next, a);
    EXPECT_EQ(a->prev, b);
    EXPECT_EQ(a->next, nullptr);
}

TEST_F(Views, ViewForWhichMemoryIsShortIsNotMade)
{
    _ixfs_view_t* const a = create();
    {
        auto no_memory = interpose::on_allocation.fails(ENOMEM);
        EXPECT_EQ(create(), nullptr);
        EXPECT_EQ(no_memory.calls(), 1);
    }
    EXPECT_EQ(log.take(), (Lines{{IXFS_LOG_ERR, "_ixfs_view_create()",
                                  "ERR - calloc(" + std::to_string(sizeof(_ixfs_view_t)) +
                                      ") failed, error = 12\n"}}));
    EXPECT_EQ(head(), a);
}

TEST_F(Views, DeletingTheMiddleViewLinksItsNeighboursBothWays)
{
    _ixfs_view_t* const last = create();
    _ixfs_view_t* const middle = create();
    _ixfs_view_t* const first = create();
    remove(middle);
    EXPECT_EQ(first->next, last);
    EXPECT_EQ(last->prev, first);
    EXPECT_EQ(head(), first);
}

TEST_F(Views, DeletingTheHeadMovesTheHeadOn)
{
    _ixfs_view_t* const last = create();
    _ixfs_view_t* const first = create();
    remove(first);
    EXPECT_EQ(head(), last);
    EXPECT_EQ(last->prev, nullptr);
}

TEST_F(Views, DeletingTheLastViewEndsTheListBeforeIt)
{
    _ixfs_view_t* const last = create();
    _ixfs_view_t* const first = create();
    remove(last);
    EXPECT_EQ(head(), first);
    EXPECT_EQ(first->next, nullptr);
}

TEST_F(Views, DeletingTheOnlyViewEmptiesTheList)
{
    remove(create());
    EXPECT_EQ(head(), nullptr);
    EXPECT_EQ(log.take(), Lines{});
}

TEST_F(Views, NullHandleOrNullViewIsLeftAlone)
{
    _ixfs_view_t* const view = create();
    _ixfs_view_delete(nullptr, view);
    _ixfs_view_delete(handle.get(), nullptr);
    _ixfs_view_delete(nullptr, nullptr);
    EXPECT_EQ(head(), view);
    EXPECT_FALSE(view->lock_held);
}

// What the kernel is asked for when a view with a lock goes.
class LockCalls
{
public:
    std::vector<std::string> calls;

private:
    decltype(interpose::on_semop)::Hook semop_ =
        interpose::on_semop([this](int, const sembuf* operations, std::size_t count) {
            calls.push_back(count == 1 && operations->sem_op == 1 ? "release" : "close");
            return std::optional<int>();
        });
    decltype(interpose::on_semctl)::Hook semctl_ =
        interpose::on_semctl([this](int, int, int command, void*) {
            if (command == IPC_RMID)
                calls.push_back("remove");
            return std::optional<int>();
        });
};

TEST_F(Views, HeldLockIsReleasedAndThenRemoved)
{
    _ixfs_view_t* const view = create_locked();
    ASSERT_EQ(semaphore_sets().size(), 1);
    LockCalls lock;
    remove(view);
    EXPECT_EQ(lock.calls, (std::vector<std::string>{"release", "remove"}));
    EXPECT_EQ(semaphore_sets().size(), 0);
    EXPECT_EQ(log.take(), Lines{});
}

TEST_F(Views, LockNeverAcquiredIsDestroyedWithoutReleaseOrRemove)
{
    constexpr int users = 1; // the semaphore of a set that counts its open objects down from 10,000
    constexpr int one_other_user = 10'000 - 2;
    _ixfs_view_t* const view = create_locked();
    view->lock_held = false;
    ASSERT_EQ(semaphore_sets().size(), 1);
    const int set = semaphore_sets()[0].id;
    ASSERT_EQ(semctl(set, users, SETVAL, one_other_user), 0);

    LockCalls lock;
    remove(view);
    EXPECT_EQ(lock.calls, (std::vector<std::string>{"close", "close"}));
    EXPECT_EQ(semaphore_sets().size(), 1) << "the other's lock stays";
    EXPECT_EQ(semctl(set, 0, IPC_RMID), 0);
}

TEST_F(Views, EveryViewGoesWithTheHandleAndReleasesItsLock)
{
    create_locked();
    create();
    create_locked();
    EXPECT_GT(semaphore_sets().size(), 0);
    handle.reset();
    EXPECT_EQ(semaphore_sets().size(), 0);
    EXPECT_EQ(log.take(), Lines{});
}

TEST_F(Views, ListFreeingAcceptsNull)
{
    _ixfs_image_list_free(nullptr);
    _ixfs_image_list_metadata_free(nullptr);
    _ixfs_image_file_name_mapping_free(nullptr);
}

TEST_F(Views, ListsAreFreedWithAllTheyOwn)
{
    const std::size_t before = bytes_in_use();
    _ixfs_image_list_free(image_list());
    EXPECT_EQ(bytes_in_use(), before) << "image list";
    _ixfs_image_list_metadata_free(list_of_three<_ixfs_image_list_metadata_t>());
    EXPECT_EQ(bytes_in_use(), before) << "image list metadata";
    _ixfs_image_file_name_mapping_free(mapping_list());
    EXPECT_EQ(bytes_in_use(), before) << "file name mapping";
}

TEST_F(Views, ListsGoWithTheirView)
{
    _ixfs_view_t* const view = create();
    const std::size_t before = bytes_in_use();
    view->image_list = image_list();
    view->image_list_metadata = list_of_three<_ixfs_image_list_metadata_t>();
    view->file_name_mapping = mapping_list();
    remove(view);
    EXPECT_LE(bytes_in_use(), before);
}

} // namespace
