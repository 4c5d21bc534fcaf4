// Calls that may hang, made by a child process.
#ifndef IXFSCTL_CHILD_CALL_H
#define IXFSCTL_CHILD_CALL_H

#include "open_descriptor.h"

#include <chrono>
#include <functional>
#include <optional>
#include <sys/types.h>
#include <utility>

// One that hangs in the kernel may be beyond the reach of signals for now. Nobody waits for it: it
// is killed with this object, and has nothing open of this process's, so who reads what this
// process prints does not wait for it either.
class ChildCall
{
public:
    using Clock = std::chrono::steady_clock;

    // Begins the call. Throws std::system_error.
    explicit ChildCall(const std::function<int()>& call);
    ~ChildCall();
    ChildCall(ChildCall&&) noexcept = default;
    ChildCall(const ChildCall&) = delete;
    ChildCall& operator=(const ChildCall&) = delete;
    ChildCall& operator=(ChildCall&&) = delete;

    // What the call returned, or nothing if it is not back by then.
    std::optional<int> result_by(Clock::time_point end) const;

private:
    using Ends = std::pair<OpenDescriptor, OpenDescriptor>; // to read from, to write to

    static Ends make_pipe();
    ChildCall(const std::function<int()>& call, Ends ends);

    OpenDescriptor answer_;
    pid_t child_;
};

#endif
