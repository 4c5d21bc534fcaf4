// Where each request of the kernel is let through, failed or held, as the rules say.
#ifndef FAULTFS_GATE_H
#define FAULTFS_GATE_H

#include "nodes.h"
#include "rules.h"

#include <functional>
#include <unordered_map>
#include <vector>

#include <fuse_lowlevel.h>

namespace faultfs
{

class Gate
{
public:
    // Serves and answers a request. It runs perhaps long after the kernel's arguments are gone, so
    // it holds copies of those that it needs.
    using Action = std::function<void(const Call&)>;

    Gate(Rules& rules, Nodes& nodes) : rules_(rules), nodes_(nodes) {}

    void admit(fuse_req_t request, Call call, Action action);

    // Answers a request with an error.
    void fail(fuse_req_t request, const Call& call, int error);

    // Goes on with the held requests whose rule has been lifted, and gives up those whose caller
    // was interrupted.
    void resume();

    void fail_held(int error);

private:
    struct Held {
        fuse_req_t request;
        Call call;
        Action action;
        RuleId rule; // the last one asked
    };

    struct FailedLookup {
        std::string path;
        int error;
    };

    void proceed(Held held);
    bool answer_repeated_lookup(fuse_req_t request, const Call& call);

    Rules& rules_;
    Nodes& nodes_;
    std::vector<Held> held_;
    std::unordered_map<pid_t, FailedLookup> failed_lookups_;
};

} // namespace faultfs

#endif
