#include "gate.h"

#include <cerrno>
#include <utility>

namespace faultfs
{

void Gate::admit(fuse_req_t request, Call call, Action action)
{
    if (!answer_repeated_lookup(request, call))
        proceed({request, std::move(call), std::move(action), 0});
}

void Gate::proceed(Held held)
{
    const Verdict verdict = rules_.judge(held.call, held.rule);
    switch (verdict.effect) {
    case Effect::pass:
        held.action(held.call);
        break;
    case Effect::fail:
        fail(held.request, held.call, verdict.error);
        break;
    case Effect::hang:
        held.rule = verdict.rule;
        held_.push_back(std::move(held));
        break;
    }
}

// A lookup of a name in the kernel's cache that fails makes the kernel drop the name and look it up
// again for the same system call, except after EINTR and ENOMEM. The system call is to meet the
// failure and to count once, so the thread's next request is answered alike if it is that lookup.
void Gate::fail(fuse_req_t request, const Call& call, int error)
{
    if (call.operation == Operation::lookup && error != EINTR && error != ENOMEM &&
        nodes_.drop(call.path))
        failed_lookups_[fuse_req_ctx(request)->pid] = {call.path, error};
    fuse_reply_err(request, error);
}

bool Gate::answer_repeated_lookup(fuse_req_t request, const Call& call)
{
    const auto failed = failed_lookups_.extract(fuse_req_ctx(request)->pid);
    if (failed.empty() || call.operation != Operation::lookup || call.path != failed.mapped().path)
        return false;
    fuse_reply_err(request, failed.mapped().error);
    return true;
}

void Gate::resume()
{
    for (Held& held : std::exchange(held_, {})) {
        if (fuse_req_interrupted(held.request) != 0)
            fail(held.request, held.call, EINTR);
        else if (rules_.at(held.rule).lifted)
            proceed(std::move(held));
        else
            held_.push_back(std::move(held));
    }
}

void Gate::fail_held(int error)
{
    for (const Held& held : std::exchange(held_, {}))
        fail(held.request, held.call, error);
}

} // namespace faultfs
