#include "prepare_run_test.h"

#include "prepare_test.h"
#include "process_state.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include <sys/mount.h>
#include <sys/sem.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

const fs::path store = "/usr/varnis/var/ixfs-loopback";
constexpr char mounts_below[] = "/usr/varnis/var/ixfs";
constexpr char helper_path[] = "/usr/varnis/stowline/bin/ixfs";
const std::string images = "backups/client/allusers/full/";

std::string disk_name(int number)
{
    return "disk" + std::to_string(number) + ".vmdk";
}

} // namespace

SmallServer::SmallServer(std::string name_, int disks, int image_count)
    : name(std::move(name_)), root(store / name),
      mount_point(std::string(mounts_below) + "/" + name), disk_count_(disks)
{
    for (int image = 1; image <= image_count; ++image) {
        fs::create_directories(folder(image) + "/vm");
        write_file(configuration(image), "<vm/>\n");
        for (int disk = 0; disk < disks; ++disk) {
            const std::string file = folder(image) + "/vm/" + disk_name(disk);
            write_file(file, "data");
            write_file(file + ".desc", "RW 2048 VMFS \"" + disk_name(disk) + "\"\n");
        }
    }
}

SmallServer::~SmallServer()
{
    while (umount2(mount_point.c_str(), MNT_DETACH) == 0)
        continue;
    std::error_code error;
    fs::remove(mount_point, error); // never what it may hold
    fs::remove_all(root, error);
}

std::vector<std::string> SmallServer::disks(int image) const
{
    std::vector<std::string> disks;
    for (int disk = 0; disk < disk_count_; ++disk)
        disks.push_back("[store] " + images + std::to_string(image) + "/vm/" + disk_name(disk) +
                        ".desc");
    return disks;
}

std::string SmallServer::folder(int image) const
{
    return root + "/" + images + std::to_string(image);
}

std::string SmallServer::configuration(int image) const
{
    return folder(image) + "/^^.^VIRTUAL_FILE_FSMAP";
}

bool SmallServer::has_view(int image) const
{
    std::error_code error;
    int files = 0;
    for ([[maybe_unused]] const auto& entry :
         fs::directory_iterator(folder(image) + "/_vmir", error))
        ++files;
    return files == 2 * disk_count_;
}

int SmallServer::mounts() const
{
    int mounts = 0;
    for (const std::string& line : lines_of(std::ifstream("/proc/self/mountinfo")))
        mounts += line.find(" " + mount_point + " ") != std::string::npos ||
                  line.find(" " + mount_point + "/") != std::string::npos;
    return mounts;
}

PrepareRunTest::PrepareRunTest()
{
    folder.write("mount", "mount-secret\n");
    folder.write("unmount", "unmount-secret\n");
}

void PrepareRunTest::TearDown()
{
    EXPECT_TRUE(comes_true([] { return helpers().empty(); }));
    for (const SemaphoreSet& set : semaphore_sets())
        semctl(set.id, 0, IPC_RMID);
}

std::vector<std::string> PrepareRunTest::credentials() const
{
    return {"--mount-cred-file", folder / "mount", "--unmount-cred-file", folder / "unmount"};
}

std::vector<std::string> PrepareRunTest::command(const SmallServer& server,
                                                 const std::vector<std::string>& flags) const
{
    std::vector<std::string> command{
        IXFS_PREPARE_PROGRAM, "--server", server.name,   "--port",  "4010",
        "--schedule",         "full",     "--backup-id", "client_1"};
    for (const std::string& disk : server.disks()) {
        command.emplace_back("--disk");
        command.push_back(disk);
    }
    for (const auto& more : {credentials(), std::vector<std::string>{"--json"}, flags})
        command.insert(command.end(), more.begin(), more.end());
    return command;
}

std::vector<std::string> PrepareRunTest::helper_calls() const
{
    std::vector<std::string> calls;
    for (const std::string& line : loopback.calls()) {
        std::istringstream words(line);
        std::string command;
        std::string word;
        words >> command;
        while (words >> word && word != "-server")
            continue;
        words >> word;
        calls.push_back(command + " " + word);
    }
    return calls;
}

pid_t worker_of(const StartedProgram& program)
{
    const std::vector<pid_t> children = children_of(program.pid());
    return children.size() == 1 ? children.front() : throw std::runtime_error("no worker");
}

std::vector<pid_t> helpers()
{
    std::vector<pid_t> found;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        const std::string name = entry.path().filename();
        if (name.find_first_not_of("0123456789") != std::string::npos)
            continue;
        std::error_code error; // of those that end meanwhile
        // Only this namespace has the helper at its path; each test entry has its own.
        if (fs::read_symlink(entry.path() / "ns/mnt", error) !=
            fs::read_symlink("/proc/self/ns/mnt"))
            continue;
        const std::string arguments = [&] {
            std::ifstream file(entry.path() / "cmdline");
            return std::string(std::istreambuf_iterator<char>(file), {});
        }();
        const fs::path program = fs::read_symlink(entry.path() / "exe", error);
        if (program == helper_path || arguments.rfind(std::string("sh\0-c", 5), 0) == 0)
            found.push_back(std::stoi(name));
    }
    return found;
}
