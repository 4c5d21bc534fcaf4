// A view to be locked on a host called "esx-proxy7", and the lines that locking logs.
#ifndef IXFS_TESTS_VIEW_LOCK_TEST_H
#define IXFS_TESTS_VIEW_LOCK_TEST_H

#include "file_lines.h"
#include "handle_test.h"
#include "interpose.h"
#include "process_state.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <string>

namespace view_lock
{

inline constexpr char lock_tag[] = "_ixfs_view_lock()";

inline Line host_line(const std::string& host)
{
    return {IXFS_LOG_ERR, lock_tag, "INF - ACE_OS::hostname: " + host + "\n"};
}

inline Line base_name_line(const std::string& base_name)
{
    return {IXFS_LOG_INF, lock_tag, "INF - base_name: " + base_name + "\n"};
}

inline Line trying_line(const std::string& mutex)
{
    return {IXFS_LOG_INF, lock_tag, "INF - Trying to create mutex: " + mutex + "\n"};
}

inline Line lost_line(int error)
{
    return {IXFS_LOG_WRN, lock_tag,
            "WRN - Acquire failed for ACE_Process_Mutex, error = " + std::to_string(error) + "\n"};
}

inline Line won_line(const std::string& mutex)
{
    return {IXFS_LOG_INF, lock_tag, "INF - Successfully created mutex: " + mutex + "\n"};
}

// Whether an operation on a lock is a try to get it.
inline bool is_try(const sembuf* operations, std::size_t count)
{
    return count == 1 && operations->sem_op == -1 && (operations->sem_flg & IPC_NOWAIT) != 0;
}

// Lets tries for a lock fail.
inline auto fail_tries(int count, int error)
{
    return interpose::on_semop(
        [count, error](int, const sembuf* operations, std::size_t size) mutable {
            if (!is_try(operations, size) || count == 0)
                return std::optional<int>();
            --count;
            errno = error;
            return std::optional<int>(-1);
        });
}

} // namespace view_lock

class ViewLockTest : public HandleTest
{
protected:
    static constexpr long id = 1'700'000'000;
    const std::string mutex = "Global\\EGR_1700000000__vv_esx-proxy7_"; // and the attempt

    const Lines naming_lines{view_lock::host_line("esx-proxy7"),
                             view_lock::base_name_line("_vv_esx-proxy7")};

    ViewLockTest() { view = _ixfs_view_create(handle.get()); }

    void TearDown() override
    {
        handle.reset();
        EXPECT_EQ(semaphore_sets().size(), 0) << "no lock outlives its handle";
    }

    int lock(_ixfs_view_t* locked, std::size_t size = sizeof(base_name))
    {
        return _ixfs_view_lock(handle.get(), locked, id, base_name, size);
    }
    int lock() { return lock(view); }

    std::optional<decltype(interpose::on_uname)::Hook> host_name{
        interpose::on_uname([](utsname* names) {
            std::strcpy(names->nodename, "esx-proxy7");
            return std::optional<int>(0);
        })};
    _ixfs_view_t* view;
    char base_name[1024] = "unset";
};

#endif
