// The fixture of the tests that run ixfs-prepare with real mounts, by the stand-in helper.
#ifndef IXFS_TESTS_PREPARE_RUN_TEST_H
#define IXFS_TESTS_PREPARE_RUN_TEST_H

#include "loopback.h"
#include "started_program.h"
#include "temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <string>
#include <vector>

// A media server with images of one client, each of a VM with small disks.
class SmallServer
{
public:
    // The images' times are 1, 2, ...
    explicit SmallServer(std::string name, int disks = 1, int images = 1);

    // Takes off what is mounted.
    ~SmallServer();
    SmallServer(const SmallServer&) = delete;
    SmallServer& operator=(const SmallServer&) = delete;

    std::vector<std::string> disks(int image = 1) const; // in datastore form
    std::string folder(int image = 1) const;             // of an image, on the server's side
    std::string configuration(int image = 1) const;      // its file
    bool has_view(int image = 1) const;                  // of all disks

    // How many mounts lie at or below the mount point.
    int mounts() const;

    const std::string name;
    const std::string root; // of what it offers
    const std::string mount_point;

private:
    const int disk_count_;
};

// At the end of its test no helper runs any more. Locks that a killed process left are deleted.
class PrepareRunTest : public testing::Test
{
protected:
    PrepareRunTest();
    void TearDown() override;

    // A command line that prepares the server's first image, with JSON output.
    std::vector<std::string> command(const SmallServer& server,
                                     const std::vector<std::string>& flags = {}) const;

    ProgramResult run(const SmallServer& server, const std::vector<std::string>& flags = {}) const
    {
        return run_program(command(server, flags));
    }

    // The credentials, as options.
    std::vector<std::string> credentials() const;

    // The helper's calls so far: "mount media1", "umount media1".
    std::vector<std::string> helper_calls() const;

    static nlohmann::json parsed(const ProgramResult& result)
    {
        return nlohmann::json::parse(result.output);
    }

    Loopback loopback;
    TempDir folder;
};

// The worker process of a program that works on one VM.
pid_t worker_of(const StartedProgram& program);

// The stand-in's processes, their shells included.
std::vector<pid_t> helpers();

#endif
