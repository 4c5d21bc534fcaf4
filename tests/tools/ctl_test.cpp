#include "ctl_test.h"

#include "ctl_caller.h"

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/mount.h>
#include <sys/sem.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;
using nlohmann::json;

namespace
{

const fs::path helper = "/usr/varnis/stowline/bin/ixfs";
const std::string mount_base = "/usr/varnis/var/ixfs";

void require(bool fulfilled, const std::string& what)
{
    if (!fulfilled)
        throw std::system_error(errno, std::generic_category(), what);
}

template <typename Function>
Function* function_of_caller(const char* name)
{
    void* const module = dlopen(IXFS_CTL_CALLER, RTLD_NOW);
    void* const function = module != nullptr ? dlsym(module, name) : nullptr;
    if (function == nullptr)
        throw std::runtime_error(dlerror());
    return reinterpret_cast<Function*>(function);
}

bool in_private_namespace()
{
    for (const std::string& line : lines_of(std::ifstream("/proc/self/mountinfo"))) {
        if (line.find(" /usr/varnis ") != std::string::npos &&
            line.find(" - tmpfs in_namespace ") != std::string::npos)
            return true;
    }
    return false;
}

} // namespace

int mount_in_caller(const std::string& server)
{
    return function_of_caller<decltype(caller_mount)>("caller_mount")(server.c_str());
}

int lock_view_in_caller()
{
    return function_of_caller<decltype(caller_lock_view)>("caller_lock_view")();
}

int prepare_in_caller(const std::string& server, const std::string& backup_id,
                      const std::vector<std::string>& disks)
{
    std::vector<const char*> entries;
    entries.reserve(disks.size());
    for (const std::string& disk : disks)
        entries.push_back(disk.c_str());
    return function_of_caller<decltype(caller_prepare)>("caller_prepare")(
        server.c_str(), backup_id.c_str(), entries.data(), static_cast<int>(entries.size()));
}

ProgramResult run_ctl(const std::vector<std::string>& arguments)
{
    std::vector<std::string> command = {IXFSCTL_PROGRAM};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return run_program(command);
}

json status_of_host()
{
    const ProgramResult result = run_ctl({"status", "--json"});
    EXPECT_EQ(result.errors, "");
    json status = json::parse(result.output);
    EXPECT_EQ(result.exit_status, status.at("findings").empty() ? 0 : 1);

    const TempDir folder;
    folder.write("status.json", result.output);
    const ProgramResult validated =
        run_program({IXFS_PYTHON, "-W", "ignore", "-m", "jsonschema", "--instance",
                     folder / "status.json", IXFSCTL_SCHEMA});
    EXPECT_EQ(validated.exit_status, 0) << validated.errors << result.output;
    return status;
}

std::vector<std::string> finding_ids(const json& status)
{
    std::vector<std::string> ids;
    for (const json& finding : status.at("findings"))
        ids.push_back(finding.at("id"));
    return ids;
}

std::size_t count_semaphore_sets()
{
    return lines_of(std::ifstream("/proc/sysvipc/sem")).size() - 1; // the heading
}

HungMount::HungMount(const std::string& on)
    : on_(on), device_(open("/dev/fuse", O_RDWR | O_CLOEXEC))
{
    if (device_ == -1)
        throw std::runtime_error("/dev/fuse cannot be opened");
    const std::string options =
        "fd=" + std::to_string(device_) + ",rootmode=40000,user_id=0,group_id=0";
    require(mount("hung", on.c_str(), "fuse", 0, options.c_str()) == 0, on);
}

HungMount::~HungMount()
{
    umount2(on_.c_str(), MNT_FORCE); // calls that hang now end, the reader's, too
    umount2(on_.c_str(), MNT_DETACH);
    if (reader_.joinable())
        reader_.join();
    close(device_);
}

void HungMount::swallow_requests()
{
    reader_ = std::thread([device = device_] {
        std::vector<char> request(1U << 17U);
        const auto read_one = [&] {
            return read(device, request.data(), request.size());
        };
        struct {
            fuse_out_header header;
            fuse_init_out body;
        } answer{};
        if (read_one() < 0)
            return;
        answer.header.len = sizeof(answer);
        answer.header.unique = reinterpret_cast<fuse_in_header*>(request.data())->unique;
        answer.body.major = FUSE_KERNEL_VERSION;
        answer.body.minor = FUSE_KERNEL_MINOR_VERSION;
        answer.body.max_write = 1U << 16U;
        if (write(device, &answer, sizeof(answer)) < 0)
            return;
        while (read_one() >= 0)
            continue;
    });
}

CtlTest::CtlTest()
{
    if (!in_private_namespace())
        throw std::logic_error("run the test under tests/support/in_namespace");
    fs::create_directories(mount_base);
    helper_does("exit 0");
}

CtlTest::~CtlTest()
{
    EXPECT_EQ(count_semaphore_sets(), 0U);
    for (const std::string& line : lines_of(std::ifstream("/proc/self/mountinfo")))
        EXPECT_EQ(line.find(" " + mount_base + "/"), std::string::npos) << line;
    EXPECT_EQ(run_ctl({"clean", "--yes"}).output.find("end PID"), std::string::npos);
    std::error_code error;
    fs::remove_all(mount_base, error);
    fs::remove_all(helper, error);
}

void CtlTest::helper_does(const std::string& commands) const
{
    fs::remove_all(helper);
    std::ofstream file(helper);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    file << "#!/bin/sh\n" << commands << "\n" << std::flush;
    fs::permissions(helper, fs::perms(0755));
}

ChildProcess CtlTest::start_caller(const std::function<int()>& call)
{
    return {STDERR_FILENO, [call](ChildProcess::Parent& parent) {
                const int result = call();
                parent.pause();
                return result;
            }};
}

// The helper says that it has begun before it waits.
ChildProcess CtlTest::start_caller_in_helper(const std::string& before)
{
    for (const char* const pipe : {"begun", "gate"}) {
        if (!exists(folder / pipe))
            require(mkfifo((folder / pipe).c_str(), 0600) == 0, pipe);
    }
    helper_does(before + "\necho > '" + (folder / "begun") + "'\nread line < '" +
                (folder / "gate") + "'\nmount -t tmpfs late '" + directory_of("media1") + "'");
    ChildProcess caller = start_caller([] { return mount_in_caller("media1"); });
    std::ifstream begun(folder / "begun");
    begun.get();
    return caller;
}

void CtlTest::let_helper_go() const
{
    std::ofstream(folder / "gate") << "\n";
}

std::string CtlTest::directory_of(const std::string& server)
{
    return mount_base + "/" + server;
}

std::string CtlTest::make_directory(const std::string& server)
{
    fs::create_directories(directory_of(server));
    return directory_of(server);
}

void CtlTest::mount_on(const std::string& server, const std::string& source)
{
    const std::string directory = make_directory(server);
    require(mount(source.c_str(), directory.c_str(), "tmpfs", 0, nullptr) == 0, directory);
    fs::create_directory(directory + "/backups");
}

int CtlTest::layers_of(const std::string& server)
{
    int layers = 0;
    for (const std::string& line : lines_of(std::ifstream("/proc/self/mountinfo")))
        layers += line.find(" " + directory_of(server) + " ") != std::string::npos;
    return layers;
}

bool CtlTest::exists(const std::string& path)
{
    return fs::symlink_status(path).type() != fs::file_type::not_found;
}
