#include "ending_signals.h"

#include <cerrno>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>

namespace
{

bool is_ignored(int signal)
{
    struct sigaction action = {};
    return sigaction(signal, nullptr, &action) == 0 && action.sa_handler == SIG_IGN;
}

} // namespace

EndingSignals::EndingSignals()
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        if (!is_ignored(signal))
            sigaddset(&signals, signal);
    }
    descriptor_ = OpenDescriptor(signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC));
    if (!descriptor_.is_open())
        throw std::system_error(errno, std::generic_category(), "signalfd");
    sigprocmask(SIG_BLOCK, &signals, &mask_before_);
}

int EndingSignals::take() const
{
    signalfd_siginfo information{};
    const ssize_t size = read(descriptor_.number(), &information, sizeof(information));
    return size == sizeof(information) ? static_cast<int>(information.ssi_signo) : 0;
}
