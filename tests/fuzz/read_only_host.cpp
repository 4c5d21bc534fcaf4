#include "read_only_host.h"

#include "check.h"

#include <cerrno>
#include <cstring>
#include <thread>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>

namespace
{

void require_call(int result, const std::string& what)
{
    require(result == 0, what + ": " + std::strerror(errno));
}

void set_attributes(const std::string& path, unsigned int flags, mount_attr attributes)
{
    require_call(mount_setattr(AT_FDCWD, path.c_str(), flags, &attributes, sizeof(attributes)),
                 "mount_setattr " + path);
}

void keep_writable(const std::string& path)
{
    mount_attr attributes{};
    attributes.attr_clr = MOUNT_ATTR_RDONLY;
    set_attributes(path, 0, attributes);
}

void make_read_only(const std::string& but)
{
    require_call(unshare(CLONE_NEWNS), "unshare");
    require_call(mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr), "mount /");
    if (!but.empty())
        require_call(mount(but.c_str(), but.c_str(), nullptr, MS_BIND, nullptr), "mount " + but);
    mount_attr attributes{};
    attributes.attr_set = MOUNT_ATTR_RDONLY;
    set_attributes("/", AT_RECURSIVE, attributes);
    keep_writable("/usr/varnis");
    if (!but.empty())
        keep_writable(but);
}

} // namespace

ReadOnlyHost::ReadOnlyHost(const std::string& writable)
{
    std::thread([this, writable] { serve(writable); }).detach();
}

void ReadOnlyHost::run(const std::function<void()>& function)
{
    std::unique_lock<std::mutex> lock(mutex_);
    wanted_ = &function;
    changed_.notify_all();
    changed_.wait(lock, [this] { return wanted_ == nullptr; });
}

void ReadOnlyHost::serve(const std::string& writable)
{
    make_read_only(writable);
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return wanted_ != nullptr; });
        (*wanted_)();
        wanted_ = nullptr;
        changed_.notify_all();
    }
}
