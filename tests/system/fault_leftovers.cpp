#include "fault_leftovers.h"

#include "process_mutex_set.h"
#include "process_state.h"
#include "watchdog.h"

#include <gtest/gtest.h>

#include <fstream>

#include <sys/mount.h>
#include <sys/sem.h>

namespace
{

std::string children()
{
    std::ifstream list("/proc/thread-self/children");
    std::string processes;
    std::getline(list, processes);
    return processes;
}

long threads()
{
    return process_status("Threads");
}

// Mount points below the directory that the library mounts on, the topmost first.
std::vector<std::string> mounts()
{
    std::ifstream table("/proc/self/mountinfo");
    std::vector<std::string> points;
    for (std::string line; std::getline(table, line);) {
        const std::size_t begin = line.find(" /usr/varnis/var/ixfs/");
        if (begin != std::string::npos)
            points.push_back(line.substr(begin + 1, line.find(' ', begin + 1) - begin - 1));
    }
    return {points.rbegin(), points.rend()};
}

// Whether an ACE process mutex can be had by anyone, now: nobody is opening or closing it, and
// nobody holds it, or it is still to be made ready by its first user.
bool can_be_had(int set)
{
    using namespace process_mutex_set;
    return semctl(set, guard, GETVAL) == 0 &&
           (semctl(set, lock, GETVAL) == 1 || semctl(set, users, GETVAL) == 0);
}

} // namespace

Leftovers::Leftovers()
    : descriptors_(open_descriptors()), children_(children()), threads_(threads())
{
}

void Leftovers::expect_none_but(MountedImage image, FreeLock lock) const
{
    look_until([this] { return threads() <= threads_; });
    EXPECT_EQ(open_descriptors(), descriptors_);
    EXPECT_EQ(children(), children_);
    EXPECT_EQ(mounts().size(), image == MountedImage::is_left ? 1U : 0U);
    for (const std::string& mount : mounts())
        umount2(mount.c_str(), MNT_DETACH);
    for (const SemaphoreSet& set : semaphore_sets()) {
        EXPECT_EQ(lock, FreeLock::may_be_left);
        EXPECT_TRUE(can_be_had(set.id)) << "a lock is left that nobody can get";
        semctl(set.id, 0, IPC_RMID);
    }
}
