#include "fault_mount.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace faultfs
{

namespace
{

constexpr int answer_limit_ms = 60'000;
constexpr int end_limit_ms = 10'000;

struct SocketPair {
    UniqueFd ours;
    UniqueFd theirs;
};

SocketPair make_socket_pair()
{
    std::array<int, 2> ends;
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == -1)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

pid_t start(std::string source, std::string mount_point, int control)
{
    std::string program = IXFS_FAULTFS_PROGRAM;
    const std::array<char*, 4> arguments = {program.data(), source.data(), mount_point.data(),
                                            nullptr};
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, control, STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, control, STDOUT_FILENO);
    pid_t process = -1;
    const int error =
        ::posix_spawn(&process, program.c_str(), &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), program);
    return process;
}

bool happens_within(int fd, short event, int limit_ms)
{
    pollfd source{fd, event, 0};
    int ready = -1;
    do
        ready = ::poll(&source, 1, limit_ms);
    while (ready == -1 && errno == EINTR);
    return ready == 1;
}

int reap(pid_t process)
{
    int status = -1;
    while (::waitpid(process, &status, 0) == -1 && errno == EINTR) {
    }
    return status;
}

// A forced unmount of a busy mount, and a file system that dies, leave the mount without its
// connection.
void detach_dead_mount(const std::filesystem::path& mount_point)
{
    struct stat attributes;
    if (::stat(mount_point.c_str(), &attributes) == -1 && errno == ENOTCONN)
        ::umount2(mount_point.c_str(), MNT_DETACH);
}

} // namespace

std::string FaultMount::obstacle()
{
    if (UniqueFd(::open("/dev/fuse", O_RDWR | O_CLOEXEC)))
        return {};
    return std::string("/dev/fuse cannot be opened: ") + std::strerror(errno);
}

FaultMount::FaultMount(const std::filesystem::path& source, std::filesystem::path mount_point)
    : mount_point_(std::move(mount_point))
{
    SocketPair sockets = make_socket_pair();
    process_ = start(source, mount_point_, sockets.theirs.get());
    sockets.theirs.reset(); // so that its death reads as the end of the answers
    control_ = std::move(sockets.ours);
    try {
        read_answer();
    } catch (...) {
        end();
        throw;
    }
}

FaultMount::~FaultMount()
{
    end();
}

int FaultMount::end() noexcept
{
    if (process_ == -1)
        return wait_status_;
    ::shutdown(control_.get(), SHUT_WR);
    if (!happens_within(control_.get(), POLLHUP, end_limit_ms))
        ::kill(process_, SIGKILL);
    wait_status_ = reap(std::exchange(process_, -1));
    detach_dead_mount(mount_point_);
    return wait_status_;
}

std::string FaultMount::read_answer()
{
    std::string line;
    for (char next = 0; next != '\n'; line += next) {
        if (!happens_within(control_.get(), POLLIN, answer_limit_ms))
            throw std::runtime_error("ixfs-faultfs does not answer");
        if (::read(control_.get(), &next, 1) != 1)
            throw std::runtime_error("ixfs-faultfs has ended");
    }
    line.pop_back();
    return line;
}

std::string FaultMount::command(const std::string& line)
{
    const std::string text = line + '\n';
    if (::send(control_.get(), text.data(), text.size(), MSG_NOSIGNAL) !=
        static_cast<ssize_t>(text.size()))
        throw std::runtime_error("ixfs-faultfs takes no commands");
    const std::string answer = read_answer();
    if (answer.compare(0, 2, "ok") != 0)
        throw std::runtime_error(line + ": " + answer);
    return answer.substr(2);
}

Fault FaultMount::add(const std::string& rule)
{
    return {*this, command("add " + rule)};
}

Count Fault::count() const
{
    std::istringstream answer(mount_->command("count" + id_));
    Count count{};
    answer >> count.seen >> count.fired;
    return count;
}

void Fault::lift() const
{
    mount_->command("lift" + id_);
}

void Fault::wait_until_fired(std::uint64_t times) const
{
    mount_->command("wait" + id_ + ' ' + std::to_string(times));
}

} // namespace faultfs
