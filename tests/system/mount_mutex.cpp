#include "mount_mutex.h"

#include "process_mutex_set.h"
#include "process_state.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include <fcntl.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

const fs::path helper_folder = "/usr/varnis/var/exclusive";
const fs::path mount_base = "/usr/varnis/var/ixfs";

std::ptrdiff_t count_lines(const fs::path& file)
{
    std::ifstream stream(file);
    return std::count(std::istreambuf_iterator<char>(stream), {}, '\n');
}

bool succeeded(bool success, const char* call, const Handle& handle)
{
    if (!success)
        std::fprintf(stderr, "%s failed with %d\n", call, ixfs_last_error(handle.get()));
    return success;
}

} // namespace

ExclusiveHelper::ExclusiveHelper()
{
    fs::create_directories(mount_base);
    fs::create_directories(helper_folder);
    if (mkfifo((helper_folder / "gate").c_str(), 0600) != 0)
        throw std::system_error(errno, std::generic_category(), "mkfifo");
}

ExclusiveHelper::~ExclusiveHelper()
{
    fs::remove_all(helper_folder);
}

int ExclusiveHelper::runs() const
{
    return static_cast<int>(count_lines(helper_folder / "runs"));
}

int ExclusiveHelper::overlaps() const
{
    return static_cast<int>(count_lines(helper_folder / "overlaps"));
}

int ExclusiveHelper::take_overlaps()
{
    const int taken = overlaps();
    fs::remove(helper_folder / "overlaps");
    return taken;
}

void ExclusiveHelper::set_duration(int milliseconds)
{
    std::ofstream(helper_folder / "duration") << milliseconds;
}

void ExclusiveHelper::hold_next_run()
{
    std::ofstream(helper_folder / "hold");
}

ExclusiveHelper::HeldRun::HeldRun(const ExclusiveHelper& /*helper*/)
    : gate_(open((helper_folder / "gate").c_str(), O_WRONLY | O_CLOEXEC))
{
}

void ExclusiveHelper::HeldRun::let_go(int exit_status)
{
    if (gate_ == -1)
        return;
    dprintf(gate_, "%d\n", exit_status);
    close(gate_);
    gate_ = -1;
}

void wait_for_waiters(int count)
{
    look_until([count] {
        const auto sets = semaphore_sets();
        return sets.size() == 1 &&
               semctl(sets.front().id, process_mutex_set::lock, GETNCNT) == count;
    });
}

void delete_every_semaphore_set()
{
    for (const SemaphoreSet& set : semaphore_sets())
        semctl(set.id, 0, IPC_RMID);
}

bool mounts(const Handle& handle, const std::string& server)
{
    const char* const mount_point =
        ixfs_mount(handle.get(), "mount-cred", "unmount-cred", 1, server.c_str(), 0, nullptr);
    return succeeded(mount_point != nullptr, "ixfs_mount", handle);
}

bool unmounts(const Handle& handle)
{
    return succeeded(ixfs_unmount(handle.get()) == EC_OK, "ixfs_unmount", handle);
}

bool recreates_context(const Handle& handle, const std::string& server)
{
    const int result = ixfs_recreate_minimal_context(handle.get(), "mount-cred", "unmount-cred", 1,
                                                     server.c_str(), 0, "/m/x");
    return succeeded(result == 0, "ixfs_recreate_minimal_context", handle);
}

Handle quiet_handle()
{
    return Handle(ixfs_init(0, nullptr, nullptr, nullptr, nullptr));
}

int mount_and_unmount(ChildProcess::Parent& /*parent*/)
{
    const Handle handle = quiet_handle();
    const bool mounted = mounts(handle);
    const bool unmounted = unmounts(handle);
    return static_cast<int>(!mounted) + static_cast<int>(!unmounted);
}

int mount_pause_and_unmount(ChildProcess::Parent& parent)
{
    const Handle handle = quiet_handle();
    const bool mounted = mounts(handle);
    parent.pause();
    const bool unmounted = unmounts(handle);
    return static_cast<int>(!mounted) + static_cast<int>(!unmounted);
}

bool become_other_user()
{
    constexpr uid_t other_user = 65534;
    return setresgid(other_user, other_user, other_user) == 0 &&
           setresuid(other_user, other_user, other_user) == 0;
}

MountMutexTest::MountMutexTest()
    : errors_(open((folder_ / "errors").c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600))
{
}

MountMutexTest::~MountMutexTest()
{
    close(errors_);
}

void MountMutexTest::TearDown()
{
    EXPECT_EQ(helper.overlaps(), 0) << "of " << helper.runs() << " runs";
    EXPECT_EQ(semaphore_sets().size(), 0) << "no lock outlives its users";
    EXPECT_EQ(folder_.read("errors"), "");
}

bool MountMutexTest::there_are_other_users() const
{
    return run([](ChildProcess::Parent&) { return become_other_user() ? 0 : 1; }) == 0;
}
