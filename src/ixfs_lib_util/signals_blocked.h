// Keeps signal handlers off the calling thread for a scope.
#ifndef IXFS_SIGNALS_BLOCKED_H
#define IXFS_SIGNALS_BLOCKED_H

#include <csignal>

class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t before_{};
};

#endif
