// ixfs-faultfs SOURCE MOUNT_POINT: a pass-through file system that fails where it is told to.
#include "control.h"
#include "mirror.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

namespace faultfs
{

namespace
{

struct SessionCloser {
    void operator()(fuse_session* session) const { fuse_session_destroy(session); }
};

using Session = std::unique_ptr<fuse_session, SessionCloser>;

// A request that its caller withdraws is gone by the time that it is read: reading never waits.
bool never_wait(int fd)
{
    const int flags = ::fcntl(fd, F_GETFL);
    return flags != -1 && ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) != -1;
}

// Null when it cannot be mounted; libfuse has then said why.
Session mounted(Mirror& mirror, const char* mount_point)
{
    std::array<char, 13> program = {"ixfs-faultfs"};
    std::array<char, 22> options = {"-ofsname=ixfs-faultfs"};
    std::array<char*, 2> arguments = {program.data(), options.data()};
    fuse_args parsed = FUSE_ARGS_INIT(static_cast<int>(arguments.size()), arguments.data());
    const fuse_lowlevel_ops operations = mirror_operations();
    Session session(fuse_session_new(&parsed, &operations, sizeof operations, &mirror));
    fuse_opt_free_args(&parsed);
    if (session && (fuse_session_mount(session.get(), mount_point) != 0 ||
                    !never_wait(fuse_session_fd(session.get()))))
        session.reset();
    return session;
}

class Server
{
public:
    Server(fuse_session& session, Mirror& mirror) : session_(session), mirror_(mirror) {}
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    ~Server() { std::free(buffer_.mem); }

    // Serves until the commands end: what was counted can be asked for after an unmount too. One
    // thread does everything, so a counter never misses a call, nor a call a rule.
    void run()
    {
        control_.answer("ready");
        std::array<pollfd, 2> sources = {pollfd{fuse_session_fd(&session_), POLLIN, 0},
                                         pollfd{STDIN_FILENO, POLLIN, 0}};
        while (!control_.at_end()) {
            if (::poll(sources.data(), sources.size(), -1) == -1 && errno != EINTR)
                break;
            if (sources[0].revents != 0)
                serve_request();
            if (sources[1].revents != 0)
                control_.receive();
            if (fuse_session_exited(&session_) != 0) {
                mirror_.gate.fail_held(ENOTCONN);
                sources[0].fd = -1;
            }
            do
                mirror_.gate.resume();
            while (control_.step());
        }
        mirror_.gate.fail_held(ENOTCONN);
    }

private:
    void serve_request()
    {
        const int got = fuse_session_receive_buf(&session_, &buffer_);
        if (got > 0)
            fuse_session_process_buf(&session_, &buffer_);
        else if (got != -EINTR && got != -EAGAIN)
            fuse_session_exit(&session_);
    }

    fuse_session& session_;
    Mirror& mirror_;
    Control control_{mirror_.rules, STDIN_FILENO, STDOUT_FILENO};
    fuse_buf buffer_{};
};

int run(const char* source_path, const char* mount_point)
{
    UniqueFd source(::open(source_path, O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!source) {
        std::perror(source_path);
        return EXIT_FAILURE;
    }
    Mirror mirror(std::move(source));
    const Session session = mounted(mirror, mount_point);
    if (!session)
        return EXIT_FAILURE;
    Server(*session, mirror).run();
    fuse_session_unmount(session.get());
    return EXIT_SUCCESS;
}

} // namespace

} // namespace faultfs

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fputs("usage: ixfs-faultfs SOURCE MOUNT_POINT\n", stderr);
        return 2;
    }
    // The end of the commands ends it, so a terminal's interrupt leaves no dead mount behind.
    std::signal(SIGINT, SIG_IGN);
    std::signal(SIGHUP, SIG_IGN);
    std::signal(SIGPIPE, SIG_IGN);
    ::umask(0); // the kernel has applied the caller's
    return faultfs::run(argv[1], argv[2]);
}
