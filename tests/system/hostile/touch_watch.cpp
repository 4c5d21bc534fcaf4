#include "touch_watch.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <set>
#include <system_error>

#include <sys/inotify.h>
#include <unistd.h>

namespace fs = std::filesystem;

TouchWatch::TouchWatch(const std::string& root)
    : descriptor_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
{
    if (descriptor_ == -1)
        throw std::system_error(errno, std::generic_category(), "inotify");
    if (!fs::is_directory(fs::symlink_status(root))) {
        watch(root);
        return;
    }
    // Found first and watched afterwards, for the looking opens what it finds.
    std::vector<std::string> paths{root};
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(root))
        paths.push_back(entry.path());
    for (const std::string& path : paths)
        watch(path);
}

TouchWatch::~TouchWatch()
{
    close(descriptor_);
}

void TouchWatch::watch(const std::string& path)
{
    const int number = inotify_add_watch(descriptor_, path.c_str(), IN_ALL_EVENTS | IN_DONT_FOLLOW);
    if (number == -1)
        throw std::system_error(errno, std::generic_category(), path);
    paths_[number] = path;
}

std::vector<std::string> TouchWatch::touched() const
{
    return paths_with(IN_ALL_EVENTS);
}

std::vector<std::string> TouchWatch::opened() const
{
    return paths_with(IN_OPEN);
}

std::vector<std::string> TouchWatch::paths_with(std::uint32_t wanted) const
{
    std::set<std::string> touched;
    alignas(inotify_event) std::array<char, 64 << 10> events{};
    for (ssize_t size = 0; (size = read(descriptor_, events.data(), events.size())) > 0;) {
        for (ssize_t at = 0; at < size;) {
            const auto* const event = reinterpret_cast<const inotify_event*>(events.data() + at);
            const auto path = paths_.find(event->wd);
            if (path != paths_.end() && (event->mask & wanted) != 0)
                touched.insert(event->len == 0 ? path->second : path->second + "/" + event->name);
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
    return {touched.begin(), touched.end()};
}
