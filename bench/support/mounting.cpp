#include "mounting.h"

#include <cstdlib>
#include <utility>

namespace
{

#define HELPER R"("/usr/varnis/stowline/bin/ixfs")"
#define MOUNT_BASE "/usr/varnis/var/ixfs/"

constexpr int port = 40100;
constexpr unsigned int timeout = 60; // seconds
constexpr char mount_cred[] = "mount-credential";
constexpr char unmount_cred[] = "unmount-credential";
constexpr char duration[] = "IXFS_BENCH_HELPER_MILLISECONDS"; // the helper reads it

} // namespace

MountingHandle::MountingHandle(std::string server, ixfs_log_callback log_callback)
    : server_(std::move(server)), handle_(ixfs_init(0, nullptr, log_callback, nullptr, nullptr))
{
}

const char* MountingHandle::mount() const
{
    return ixfs_mount(handle_, mount_cred, unmount_cred, port, server_.c_str(), timeout, nullptr);
}

bool MountingHandle::unmount() const
{
    return ixfs_unmount(handle_) == EC_OK;
}

std::string mount_command(const std::string& server)
{
    return HELPER " mount -server " + server + " -port " + std::to_string(port) + " -timeout " +
           std::to_string(timeout) + "  -cred " + mount_cred + " " MOUNT_BASE + server;
}

std::string unmount_command(const std::string& server)
{
    return HELPER " umount -f -server " + server + " -port " + std::to_string(port) + " -cred " +
           unmount_cred + " /usr/varnis/var/bench/" + server; // as the helper names it
}

SlowHelper::SlowHelper(const char* milliseconds)
{
    setenv(duration, milliseconds, 1);
}

SlowHelper::~SlowHelper()
{
    unsetenv(duration);
}
