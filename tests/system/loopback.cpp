#include "loopback.h"

#include "program.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace
{

const fs::path store = "/usr/varnis/var/ixfs-loopback";
const fs::path control = store / ".control";

void require(bool fulfilled, const std::string& what)
{
    if (!fulfilled)
        throw std::system_error(errno, std::generic_category(), what);
}

} // namespace

Loopback::Loopback()
{
    if (!fs::exists(store))
        throw std::logic_error(store.string() +
                               " is missing: run the test under tests/support/in_namespace");
    fs::remove_all(control);
    fs::create_directories(control / "mount");
    fs::create_directories(control / "umount");
}

Loopback::~Loopback()
{
    std::error_code error;
    fs::remove_all(control, error);
}

void Loopback::steer(const std::string& command, const std::string& file, const std::string& text)
{
    std::ofstream stream(control / command / file);
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    stream << text << std::flush;
}

std::vector<std::string> Loopback::calls() const
{
    return lines_of(std::ifstream(control / "calls"));
}

std::vector<std::string> Loopback::overlaps() const
{
    return lines_of(std::ifstream(control / "overlaps"));
}

// The stand-in reads how long to hang, and so waits in that until someone writes.
HangingCall::HangingCall(const std::string& command) : path_(control / command / "hang")
{
    require(mkfifo(path_.c_str(), 0600) == 0, path_);
}

HangingCall::~HangingCall()
{
    if (descriptor_ != -1)
        close(descriptor_); // the call fails then
    unlink(path_.c_str());
}

void HangingCall::wait_until_hung()
{
    descriptor_ = open(path_.c_str(), O_WRONLY | O_CLOEXEC);
    require(descriptor_ != -1, path_);
    unlink(path_.c_str()); // later calls don't hang
}

void HangingCall::let_go()
{
    require(write(descriptor_, "0\n", 2) == 2, path_);
    close(descriptor_);
    descriptor_ = -1;
}

SampleServer::SampleServer(const std::string& name_, const std::string& schedule)
    : name(name_), root(store / name), mount_point("/usr/varnis/var/ixfs/" + name),
      image("backups/sample-client/allusers/" + schedule + "/1700000000")
{
    const ProgramResult made =
        run_program({IXFS_MAKE_SAMPLE_IMAGE, "--size", std::to_string(disk_size), "--schedule",
                     schedule, root});
    if (made.exit_status != 0)
        throw std::runtime_error(made.errors);
    disks = lines_of(std::istringstream(made.output));
    backup_id = disks.front();
    disks.erase(disks.begin());
}

SampleServer::~SampleServer()
{
    while (umount2(mount_point.c_str(), MNT_DETACH) == 0 ||
           umount2(root.c_str(), MNT_DETACH) == 0) {
    }
    std::error_code error;
    fs::remove(mount_point, error); // never what it may hold
    fs::remove_all(root, error);
}

int SampleServer::mounts() const
{
    int mounts = 0;
    for (const std::string& line : lines_of(std::ifstream("/proc/self/mountinfo")))
        mounts += line.find(" " + mount_point + " ") != std::string::npos;
    return mounts;
}
