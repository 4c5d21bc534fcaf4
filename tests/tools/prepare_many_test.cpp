// ixfs-prepare --from: many VMs.
#include "prepare_run_test.h"

#include "tree_snapshot.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <list>
#include <set>
#include <sstream>

namespace fs = std::filesystem;

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

namespace
{

class PrepareMany : public PrepareRunTest
{
protected:
    // Adds a VM to the list.
    void add(const SmallServer& server, int image = 1)
    {
        const nlohmann::json line = {{"server", server.name},
                                     {"backup_id", "client_" + std::to_string(image)},
                                     {"disks", server.disks(image)}};
        list_ += line.dump() + "\n";
        folder.write("list", list_);
    }

    std::vector<std::string> list_command(const std::vector<std::string>& flags = {}) const
    {
        std::vector<std::string> command{
            IXFS_PREPARE_PROGRAM, "--from", folder / "list", "--port", "4010",
            "--schedule",         "full",   "--quiet"};
        for (const auto& more : {credentials(), flags})
            command.insert(command.end(), more.begin(), more.end());
        return command;
    }

    // The lines of VMs, and the summary behind them.
    struct Lines {
        std::vector<nlohmann::json> vms;
        nlohmann::json summary;
    };
    static Lines lines_in(const std::string& output)
    {
        Lines lines;
        for (const std::string& text : lines_of(std::istringstream(output))) {
            const nlohmann::json line = nlohmann::json::parse(text);
            if (line.contains("summary"))
                lines.summary = line["summary"];
            else
                lines.vms.push_back(line);
        }
        return lines;
    }

private:
    std::string list_;
};

TEST_F(PrepareMany, GoesOnAfterAFailure)
{
    const SmallServer one("media1", 1, 2);
    const SmallServer two("media2");
    fs::remove(one.folder(1) + "/vm/disk0.vmdk");
    add(one, 1);
    add(one, 2);
    add(two);
    const ProgramResult result = run_program(list_command());
    EXPECT_EQ(result.exit_status, 1);
    const Lines lines = lines_in(result.output);
    ASSERT_THAT(lines.vms, SizeIs(3));
    EXPECT_EQ(lines.vms[0]["status"], 142);
    EXPECT_EQ(lines.vms[0]["disk"], one.disks(1).front());
    EXPECT_EQ(lines.vms[1]["status"], 0);
    EXPECT_EQ(lines.vms[2]["status"], 0);
    EXPECT_EQ(lines.summary["prepared"], 2);
    EXPECT_EQ(lines.summary["failed"], 1);
    EXPECT_EQ(lines.summary["not_started"], 0);
    EXPECT_TRUE(one.has_view(2));
    EXPECT_TRUE(two.has_view());
}

TEST_F(PrepareMany, StillMountedIsExitStatus3)
{
    const SmallServer one("media1");
    loopback.steer("umount", "keep");
    add(one);
    const ProgramResult result = run_program(list_command());
    EXPECT_EQ(result.exit_status, 3);
    EXPECT_EQ(lines_in(result.output).summary["still_mounted"], 1);
}

// Two servers at once: while one hangs in its mount, the other waits for the host's lock.
TEST_F(PrepareMany, WorksOnSeveralServersAtOnceAndOnOneServerInTurn)
{
    const SmallServer one("media1", 1, 2);
    const SmallServer two("media2");
    const SmallServer three("media3");
    for (const int image : {1, 2})
        add(one, image);
    add(two);
    add(three);
    HangingCall mount;
    StartedProgram program(list_command({"--jobs", "2"}));
    mount.wait_until_hung();
    EXPECT_TRUE(comes_true([&] { return children_of(program.pid()).size() == 2; }));
    mount.let_go();
    EXPECT_EQ(program.wait().exit_status, 0);
    EXPECT_THAT(loopback.overlaps(), IsEmpty());
    const std::vector<std::string> calls = helper_calls();
    EXPECT_THAT(calls, SizeIs(8));
    const auto of_one = std::count(calls.begin(), calls.end(), "mount media1");
    EXPECT_EQ(of_one, 2);
}

TEST_F(PrepareMany, ProgressCountsThem)
{
    const SmallServer one("media1");
    const SmallServer two("media2");
    fs::remove(one.folder() + "/vm/disk0.vmdk");
    add(one);
    add(two);
    ProgramSetup terminal;
    terminal.on_terminal = true;
    terminal.columns = 400;
    terminal.environment = {"TERM=xterm"};
    std::vector<std::string> command = list_command();
    command.erase(std::find(command.begin(), command.end(), "--quiet"));
    HangingCall mount;
    StartedProgram program(command, terminal);
    mount.wait_until_hung();
    HangingCall next;
    program.wait_for("0 of 2 done; media1 client_1: mounting media1");
    mount.let_go();
    next.wait_until_hung();
    program.wait_for("1 of 2 done, 1 failed; media2 client_1: mounting media2");
    next.let_go();
    EXPECT_EQ(program.wait().exit_status, 1);
}

TEST_F(PrepareMany, SecondSignalTellsOfEachServer)
{
    const SmallServer one("media1");
    const SmallServer two("media2");
    add(one);
    add(two);
    HangingCall unmount("umount");
    StartedProgram program(list_command());
    unmount.wait_until_hung();
    program.send(SIGINT);
    program.wait_for("again to give up\n");
    program.send(SIGINT);
    const ProgramResult result = program.wait();
    EXPECT_EQ(result.exit_status, 128 + SIGINT);
    EXPECT_THAT(result.errors, HasSubstr("given up; left of client_1 on media1:"));
    EXPECT_EQ(result.output, "");
    EXPECT_FALSE(two.has_view());
    unmount.let_go();
}

// Where a worker lacks descriptors, what it tells must not go to the output.
TEST_F(PrepareMany, FailsWhereThereAreTooFewDescriptors)
{
    const SmallServer one("media1");
    const SmallServer two("media2");
    add(one);
    add(two);
    std::vector<std::string> command{
        "/bin/sh", "-c",
        "for most in 5 6 7 8 9 10 11 12 13 14 15 16; do (ulimit -n $most; \"$@\" | cat); done",
        "sh"};
    for (const std::string& word : list_command({"--jobs", "2"}))
        command.push_back(word);
    const ProgramResult result = run_program(command);
    int results = 0;
    for (const std::string& line : lines_of(std::istringstream(result.output))) {
        EXPECT_TRUE(nlohmann::json::accept(line)) << line;
        results += line.find("\"status\":") != std::string::npos ? 1 : 0;
    }
    EXPECT_GT(results, 2);
    EXPECT_EQ(one.mounts() + two.mounts(), 0);
}

// 50 VMs of 4 servers.
class PrepareManyOfFourServers : public PrepareMany
{
protected:
    static constexpr int vms = 50;
    static constexpr int server_count = 4;

    PrepareManyOfFourServers()
    {
        for (int i = 0; i < server_count; ++i)
            servers.emplace_back("media" + std::to_string(i), 2,
                                 (vms + server_count - 1) / server_count);
        int number = 0;
        for (int vm = 0; vm < vms; ++vm)
            add(*std::next(servers.begin(), number++ % server_count), vm / server_count + 1);
    }

    // What the views hold: names and bytes, and which files the links lead to.
    std::vector<TreeDescription> views() const
    {
        std::vector<TreeDescription> all;
        for (const SmallServer& server : servers)
            all.push_back(describe_tree(server.root, [](const fs::directory_entry& entry) {
                if (!entry.is_regular_file())
                    return std::string("folder");
                return std::to_string(entry.hard_link_count()) + " " + bytes_of(entry.path());
            }));
        return all;
    }

    void remove_views() const
    {
        for (const SmallServer& server : servers) {
            for (int image = 1; image <= (vms + server_count - 1) / server_count; ++image)
                fs::remove_all(server.folder(image) + "/_vmir");
        }
    }

    int views_made() const
    {
        int made = 0;
        for (const SmallServer& server : servers) {
            for (int image = 1; image <= (vms + server_count - 1) / server_count; ++image)
                made += server.has_view(image) ? 1 : 0;
        }
        return made;
    }

    std::list<SmallServer> servers;
};

TEST_F(PrepareManyOfFourServers, InterruptedAndRunAgainComesToTheSame)
{
    const ProgramResult undisturbed = run_program(list_command({"--jobs", "4"}));
    ASSERT_EQ(undisturbed.exit_status, 0) << undisturbed.errors;
    EXPECT_EQ(lines_in(undisturbed.output).summary["prepared"], vms);
    const std::vector<TreeDescription> wanted = views();
    remove_views();

    StartedProgram program(list_command({"--jobs", "4"}));
    ASSERT_TRUE(comes_true([&] {
        const std::string output = program.output();
        return std::count(output.begin(), output.end(), '\n') >= vms / 4;
    }));
    program.send(SIGTERM);
    const ProgramResult interrupted = program.wait();
    EXPECT_EQ(interrupted.exit_status, 128 + SIGTERM);
    const Lines lines = lines_in(interrupted.output);
    EXPECT_GT(lines.summary["not_started"], 0);
    EXPECT_EQ(static_cast<int>(lines.vms.size()) + lines.summary["not_started"].get<int>(), vms);
    EXPECT_EQ(views_made(), lines.summary["prepared"]);
    for (const SmallServer& server : servers)
        EXPECT_EQ(server.mounts(), 0);

    EXPECT_EQ(run_program(list_command({"--jobs", "4"})).exit_status, 0);
    EXPECT_EQ(views(), wanted);
    EXPECT_THAT(loopback.overlaps(), IsEmpty());
}

} // namespace
