#include "plant.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <system_error>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace plant
{

namespace
{

void require(bool fulfilled, const std::string& what)
{
    if (!fulfilled)
        throw std::system_error(errno, std::generic_category(), what);
}

std::string up_to_the_root(const std::string& target)
{
    std::string path;
    for (int i = 0; i < 40; ++i)
        path += "../";
    return path + target.substr(1);
}

std::string as_long_as_can_be(const std::string& target)
{
    std::string path = target;
    while (path.size() + 2 < PATH_MAX)
        path.insert(0, "/.");
    return path;
}

void chain(const std::string& path, const std::string& target)
{
    const std::string name = fs::path(path).filename();
    link(path, name + ".hop-1");
    link(path + ".hop-1", "./" + name + ".hop-2");
    link(path + ".hop-2", target);
}

void through_door(const std::string& path, const std::string& target)
{
    link(path + ".door", fs::path(target).parent_path());
    link(path,
         fs::path(path).filename().string() + ".door/" + fs::path(target).filename().string());
}

} // namespace

void nothing(const std::string& path)
{
    fs::remove_all(path);
}

void file(const std::string& path, const std::string& bytes)
{
    nothing(path);
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream stream(path, std::ios::binary);
    stream.exceptions(std::ios::failbit | std::ios::badbit);
    stream << bytes << std::flush;
}

void folder(const std::string& path)
{
    nothing(path);
    fs::create_directories(path);
}

void link(const std::string& path, const std::string& target)
{
    nothing(path);
    require(symlink(target.c_str(), path.c_str()) == 0, path);
}

void hard_link(const std::string& path, const std::string& existing)
{
    nothing(path);
    require(::link(existing.c_str(), path.c_str()) == 0, path);
}

void fifo(const std::string& path)
{
    nothing(path);
    require(mkfifo(path.c_str(), 0644) == 0, path);
}

// Made in its folder, for a socket's path is short.
void socket(const std::string& path)
{
    nothing(path);
    const int number = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    require(number != -1, "socket");
    const fs::path before = fs::current_path();
    fs::current_path(fs::path(path).parent_path());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, fs::path(path).filename().c_str(), sizeof(address.sun_path) - 1);
    const int result = bind(number, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    fs::current_path(before);
    close(number);
    require(result == 0, path);
}

void device(const std::string& path)
{
    nothing(path);
    require(mknod(path.c_str(), S_IFCHR | 0644, makedev(1, 5)) == 0, path);
}

bool can_make_devices()
{
    const std::string path =
        fs::temp_directory_path() / ("ixfs-device-" + std::to_string(getpid()));
    const bool made = mknod(path.c_str(), S_IFCHR | 0600, makedev(1, 5)) == 0;
    unlink(path.c_str());
    return made;
}

void PrintTo(const Thing& thing, std::ostream* stream)
{
    *stream << thing.name;
}

std::vector<Thing> strange_things()
{
    std::vector<Thing> things = {{"Folder", folder}, {"Fifo", fifo}, {"Socket", socket}};
    if (can_make_devices())
        things.push_back({"Device", device});
    return things;
}

void PrintTo(const WayOut& way, std::ostream* stream)
{
    *stream << way.name;
}

std::vector<WayOut> ways_out()
{
    return {
        {"AbsoluteLink", link},
        {"RelativeLink",
         [](const auto& path, const auto& target) {
             link(path, up_to_the_root(target));
         }},
        {"LinkThroughTheProcess",
         [](const auto& path, const auto& target) {
             link(path, "/proc/self/root" + target);
         }},
        {"LongLink",
         [](const auto& path, const auto& target) {
             link(path, as_long_as_can_be(target));
         }},
        {"ChainOfLinks", chain},
        {"LinkThroughALinkedFolder", through_door},
    };
}

} // namespace plant
