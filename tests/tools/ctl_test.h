// The fixture of the ixfsctl tests: a host of the test's own, with a mount helper that it scripts.
#ifndef IXFS_TESTS_CTL_TEST_H
#define IXFS_TESTS_CTL_TEST_H

#include "child_process.h"
#include "program.h"
#include "temp_dir.h"
#include "watchdog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <functional>
#include <string>
#include <thread>
#include <vector>

// A child that has the library loaded; see ctl_caller.h.
using CallerBody = std::function<int(ChildProcess::Parent&)>;
int mount_in_caller(const std::string& server);
int lock_view_in_caller();
int prepare_in_caller(const std::string& server, const std::string& backup_id,
                      const std::vector<std::string>& disks);

ProgramResult run_ctl(const std::vector<std::string>& arguments);

// What "ixfsctl status" says, which must agree with its schema.
nlohmann::json status_of_host();

// Those of its findings.
std::vector<std::string> finding_ids(const nlohmann::json& status);

// How many semaphore sets there are.
std::size_t count_semaphore_sets();

// A mount that answers nothing, gone with its object. Throws std::runtime_error where this process
// can have none.
class HungMount
{
public:
    explicit HungMount(const std::string& on);
    ~HungMount();

    // Reads the requests from now on, and still answers none. Who has made one that was read is
    // beyond the reach of signals.
    void swallow_requests();
    HungMount(const HungMount&) = delete;
    HungMount& operator=(const HungMount&) = delete;

private:
    std::string on_;
    int device_;
    std::thread reader_;
};

// Ends well only if its test leaves no mount, no lock, and no process of the helper.
class CtlTest : public testing::Test
{
protected:
    CtlTest();
    ~CtlTest() override;

    // Shell commands that the mount helper carries out from now on.
    void helper_does(const std::string& commands) const;

    // Has the helper do this and then wait, to mount once it is let go. Returns when the caller's
    // helper waits.
    ChildProcess start_caller_in_helper(const std::string& before = ":");
    void let_helper_go() const;

    // A child that does this, and then waits to be killed.
    static ChildProcess start_caller(const std::function<int()>& call);

    static std::string directory_of(const std::string& server);
    static std::string make_directory(const std::string& server);
    static void mount_on(const std::string& server, const std::string& source = "source");

    static int layers_of(const std::string& server);
    static bool exists(const std::string& path);

    const TempDir folder;
    const Watchdog watchdog{std::chrono::seconds(60), "with ixfsctl"};
};

#endif
