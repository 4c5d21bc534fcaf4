#include "outlet.h"

#include <cerrno>
#include <climits>
#include <cstddef>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// What a pipe takes as a whole or not at all. In whole lines, so that those of two streams that lead
// to one pipe are not torn apart.
std::string_view next_piece(std::string_view text)
{
    const std::string_view piece = text.substr(0, PIPE_BUF);
    const std::size_t last_newline = piece.rfind('\n');
    return last_newline != std::string_view::npos ? piece.substr(0, last_newline + 1) : piece;
}

bool may_wait(int stream)
{
    struct stat status = {};
    return fstat(stream, &status) == 0 && (S_ISFIFO(status.st_mode) || isatty(stream) == 1);
}

} // namespace

Outlet::Outlet(int stream) : stream_(stream)
{
    const std::string path = "/proc/self/fd/" + std::to_string(stream);
    if (may_wait(stream))
        own_ = OpenDescriptor(open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
}

void Outlet::write(std::string_view text)
{
    if (error_ != 0)
        return;
    pending_ += text;
    go_on();
}

void Outlet::go_on()
{
    std::size_t written = 0;
    while (written < pending_.size()) {
        const ssize_t size = write_some(next_piece(std::string_view(pending_).substr(written)));
        if (size >= 0) {
            written += static_cast<std::size_t>(size);
        } else if (errno == EAGAIN) {
            break;
        } else if (errno != EINTR) {
            error_ = errno;
            written = pending_.size();
        }
    }
    pending_.erase(0, written);
}

void Outlet::finish(bool patient)
{
    constexpr int second = 1000;
    pollfd writable{descriptor(), POLLOUT, 0};
    while (waits()) {
        if (poll(&writable, 1, patient ? -1 : second) == 0) {
            error_ = ETIMEDOUT;
            pending_.clear();
        }
        go_on();
    }
}

// A socket's own way of not waiting; files do not wait.
ssize_t Outlet::write_some(std::string_view text) const
{
    if (own_.is_open())
        return ::write(own_.number(), text.data(), text.size());
    const ssize_t size = send(stream_, text.data(), text.size(), MSG_DONTWAIT);
    return size == -1 && errno == ENOTSOCK ? ::write(stream_, text.data(), text.size()) : size;
}
