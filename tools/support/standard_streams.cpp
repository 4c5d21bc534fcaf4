#include "standard_streams.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <unistd.h>

namespace
{

void do_nothing(int) {}

} // namespace

void secure_standard_streams()
{
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        const int wrong_direction = descriptor == STDIN_FILENO ? O_WRONLY : O_RDONLY;
        if (fcntl(descriptor, F_GETFD) == -1)
            open("/dev/null", wrong_direction); // takes the lowest free number, this one
    }
    struct sigaction action = {};
    if (sigaction(SIGPIPE, nullptr, &action) == 0 && action.sa_handler == SIG_IGN)
        return; // by the caller's wish, for what this program starts, too
    action = {};
    action.sa_handler = do_nothing; // SIG_IGN would be inherited by the mount helper
    action.sa_flags = SA_RESTART;
    sigaction(SIGPIPE, &action, nullptr);
}

bool write_all(int descriptor, std::string_view text) noexcept
{
    while (!text.empty()) {
        const ssize_t written = write(descriptor, text.data(), text.size());
        if (written >= 0)
            text.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            return false;
    }
    return true;
}
