// What a view shows of its lock while locks are tried for: the lock of the attempt, and none in
// between.
#include "view_lock_test.h"

#include <string>
#include <vector>

namespace
{

using Moments = std::vector<std::string>;

// Notes, at each step of the locking, whether the view has a lock. Holds on_semop and on_semctl.
class ViewLockAttempts : public testing::Test
{
protected:
    ViewLockAttempts() { current = this; }
    ~ViewLockAttempts() override
    {
        semop.reset();
        semctl.reset();
        handle.reset();
        current = nullptr;
    }

    // Locks the view; the first `lost` attempts fail with `error`.
    int lock(int lost, int error)
    {
        semop.emplace(interpose::on_semop(
            [=](int, const sembuf* operations, std::size_t count) mutable -> std::optional<int> {
                if (!view_lock::is_try(operations, count))
                    return std::nullopt;
                note("try");
                if (lost-- <= 0)
                    return std::nullopt;
                errno = error;
                return -1;
            }));
        semctl.emplace(interpose::on_semctl([this](int, int, int command, void*) {
            if (command == IPC_RMID)
                note("removal");
            return std::optional<int>();
        }));
        char base_name[1024];
        return _ixfs_view_lock(handle.get(), view, 7, base_name, sizeof(base_name));
    }

    void note(const std::string& moment)
    {
        moments.push_back(moment + (view->lock != nullptr ? ": a lock" : ": none"));
        held_early |= view->lock_held && moment != "won";
    }

    Handle handle{ixfs_init(0, nullptr, callback, nullptr, nullptr)};
    _ixfs_view_t* view = _ixfs_view_create(handle.get());
    Moments moments;
    bool held_early = false; // before an attempt has won

private:
    static void callback(int, const char*, const char* text)
    {
        const std::string message = text;
        for (const auto& [beginning, moment] :
             {std::pair{"INF - Trying to create mutex", "attempt"},
              std::pair{"WRN - Acquire failed", "warning"},
              std::pair{"ERR - Exceeded retry limit", "given up"},
              std::pair{"INF - Successfully created", "won"}}) {
            if (message.find(beginning) == 0)
                current->note(moment);
        }
    }

    static inline ViewLockAttempts* current = nullptr;
    std::optional<decltype(interpose::on_semop)::Hook> semop;
    std::optional<decltype(interpose::on_semctl)::Hook> semctl;
};

TEST_F(ViewLockAttempts, LockIsTheViewsWhileItIsTriedFor)
{
    EXPECT_EQ(lock(0, 0), 1);
    EXPECT_EQ(moments, (Moments{"attempt: none", "try: a lock", "won: a lock"}));
    EXPECT_FALSE(held_early);
    EXPECT_TRUE(view->lock_held);
}

TEST_F(ViewLockAttempts, LockThatIsLostIsTheViewsUntilItIsRemoved)
{
    EXPECT_EQ(lock(2, EBUSY), 1);
    EXPECT_EQ(moments, (Moments{"attempt: none", "try: a lock", "removal: a lock", //
                                "attempt: none", "try: a lock", "removal: a lock", //
                                "attempt: none", "try: a lock", "won: a lock"}));
    EXPECT_FALSE(held_early);
}

TEST_F(ViewLockAttempts, LockIsTheViewsWhenItsFailureIsLogged)
{
    EXPECT_EQ(lock(1, EACCES), 1);
    EXPECT_EQ(moments, (Moments{"attempt: none", "try: a lock", "warning: a lock",
                                "removal: a lock", //
                                "attempt: none", "try: a lock", "won: a lock"}));
    EXPECT_FALSE(held_early);
}

TEST_F(ViewLockAttempts, ViewHasNoLockWhenAllAreLost)
{
    EXPECT_EQ(lock(50, EBUSY), 0);
    ASSERT_EQ(moments.size(), 151U);
    EXPECT_EQ(moments[148], "try: a lock");
    EXPECT_EQ(moments[149], "removal: a lock");
    EXPECT_EQ(moments[150], "given up: none");
    EXPECT_EQ(view->lock, nullptr);
    EXPECT_FALSE(view->lock_held);
}

} // namespace
