// The signals by which the program is asked to end.
#ifndef IXFS_PREPARE_ENDING_SIGNALS_H
#define IXFS_PREPARE_ENDING_SIGNALS_H

#include "open_descriptor.h"

#include <csignal>

// Holds back SIGINT, SIGTERM and SIGHUP for as long as it lives, except those that the caller had
// this program ignore. For a process without threads.
class EndingSignals
{
public:
    EndingSignals(); // throws std::system_error
    ~EndingSignals() { let_through(); }
    EndingSignals(const EndingSignals&) = delete;
    EndingSignals& operator=(const EndingSignals&) = delete;

    // Readable when one has come.
    const OpenDescriptor& descriptor() const { return descriptor_; }

    // The next one that has come, or 0.
    int take() const;

    // For a forked child, whose signals are not to be held back.
    void let_through() const noexcept { sigprocmask(SIG_SETMASK, &mask_before_, nullptr); }

private:
    sigset_t mask_before_;
    OpenDescriptor descriptor_;
};

#endif
