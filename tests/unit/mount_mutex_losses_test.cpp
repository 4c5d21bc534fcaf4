// Openings of the mount mutex that come to nothing, since others delete it in their middle.
#include "mount_fixture.h"
#include "process_mutex_set.h"

#include <string>

#include <sys/sem.h>

namespace
{

void delete_set(int set)
{
    semctl(set, 0, IPC_RMID);
}

bool waits_for_lock(const sembuf* operations, std::size_t count)
{
    return count == 1 && operations[0].sem_num == process_mutex_set::lock &&
           operations[0].sem_op == -1;
}

// Deletes the mutex before each wait for it and then while it is being opened, in turn; then leaves
// it alone. Holds on_semop and on_semctl.
class Deletions
{
public:
    // rounds   waits whose mutex is deleted
    // queries  of the mutex's state, that find it deleted, behind each such wait; an opening makes
    //          one
    Deletions(int rounds, int queries) : rounds_(rounds), queries_(queries) {}

    int queries_in_vain() const { return queries_in_vain_; }

private:
    int rounds_;
    int queries_;
    int queries_left_ = 0;
    int queries_in_vain_ = 0;
    decltype(interpose::on_semop)::Hook semop_ = interpose::on_semop(
        [this](int set, const sembuf* operations, std::size_t count) -> std::optional<int> {
            if (waits_for_lock(operations, count) && rounds_ > 0) {
                --rounds_;
                queries_left_ = queries_;
                delete_set(set);
            }
            return std::nullopt;
        });
    decltype(interpose::on_semctl)::Hook semctl_ =
        interpose::on_semctl([this](int set, int, int command, void*) -> std::optional<int> {
            if (command == GETVAL && queries_left_ > 0) {
                --queries_left_;
                ++queries_in_vain_;
                delete_set(set);
            }
            return std::nullopt;
        });
};

constexpr int most_in_a_row = 10'000;

class MountMutexLosses : public MountTest
{
protected:
    bool mounts()
    {
        helper.answers({mounts_image()});
        return mount() != nullptr;
    }
};

TEST_F(MountMutexLosses, OfAnyNumberAreNoFailureWhereDeletionsLieBetween)
{
    constexpr int rounds = 5;
    constexpr int queries = most_in_a_row - 10;
    const Deletions deletions(rounds, queries);
    EXPECT_TRUE(mounts());
    EXPECT_EQ(deletions.queries_in_vain(), rounds * queries) << "openings lost";
    EXPECT_EQ(log.with_tag("ixfs_mount()").at(0),
              mount_says.info("INF - waiting for mount mutex..."));
    EXPECT_EQ(log.with_tag("ixfs_mount()").at(1).message.find("INF - Create mount dir "), 0U)
        << "nothing in between";
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);
}

TEST_F(MountMutexLosses, TooManyInARowAreAFailure)
{
    const Deletions deletions(1, most_in_a_row + 10);
    EXPECT_FALSE(mounts());
    EXPECT_EQ(log.lines(), (Lines{mount_says.info("INF - waiting for mount mutex..."),
                                  mount_says.error("ERR - unable to obtain mount mutex")}));
    EXPECT_EQ(ixfs_last_error(handle.get()), EC_SYSTEM_ERROR);
}

} // namespace
