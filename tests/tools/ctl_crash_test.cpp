// What a preparation leaves that is killed on its way, and what ixfsctl makes of that.
#include "ctl_test.h"
#include "cycle_count.h"
#include "loopback.h"
#include "traced_calls.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <sys/sem.h>

namespace fs = std::filesystem;
using testing::IsEmpty;

namespace
{

// Without those that were just being made. Nothing tells such a set from that of any other program,
// and the next preparation of the image completes and removes it.
int locks_left()
{
    constexpr int users = 1; // the semaphore; 0 until the first user has made the set ready
    std::ifstream table("/proc/sysvipc/sem");
    std::string line;
    std::getline(table, line); // the heading
    int locks = 0;
    while (std::getline(table, line)) {
        long key = 0;
        int set = 0;
        std::istringstream(line) >> key >> set;
        locks += semctl(set, users, GETVAL) != 0 ? 1 : 0;
    }
    return locks;
}

class CtlCrash : public testing::Test
{
protected:
    int prepare() const { return prepare_in_caller(server.name, server.backup_id, server.disks); }

    Loopback loopback;
    SampleServer server{"server"};
    const std::string view = server.root + "/" + server.image + "/_vmir";
    const Watchdog watchdog{std::chrono::seconds(280), "with ixfsctl after a crash"};
};

// Each `step`-th system call, of those that the module is loaded with, too.
TEST_F(CtlCrash, PreparationKilledAtASystemCallIsCleanedUp)
{
    const int step = cycle_count(1) > 1 ? 1 : 5;
    int kills = 0;
    int wrong = 0;
    for (int call = 1; killed_at_system_call(call, [this] { prepare(); }); call += step, ++kills) {
        const std::string when = "after a kill at system call " + std::to_string(call);
        wrong += run_ctl({"status"}).exit_status;
        const ProgramResult cleaned = run_ctl({"clean", "--yes"});
        ASSERT_EQ(cleaned.exit_status, 0) << when << "\n" << cleaned.output << cleaned.errors;
        const ProgramResult status = run_ctl({"status"});
        ASSERT_EQ(status.exit_status, 0) << when << "\n" << status.output;
        ASSERT_EQ(locks_left(), 0) << when;
        ASSERT_TRUE(!fs::exists("/usr/varnis/var/ixfs") || fs::is_empty("/usr/varnis/var/ixfs"))
            << when;
        ChildProcess next(STDERR_FILENO, [this](ChildProcess::Parent&) { return prepare(); });
        ASSERT_EQ(next.wait(), 0) << when;
        ASSERT_TRUE(fs::exists(view)) << when;
        ASSERT_EQ(count_semaphore_sets(), 0U) << when;
        fs::remove_all(view);
    }
    EXPECT_GE(kills, 40);
    EXPECT_GE(wrong, 20) << "kills that left something";
    std::printf("killed at %d system calls, %d left something\n", kills, wrong);
}

} // namespace
