#include "queue.h"

#include <algorithm>

Queue::Queue(const std::vector<Request>& requests, int jobs)
    : jobs_(static_cast<std::size_t>(std::max(jobs, 1))), all_(requests.size())
{
    for (std::size_t i = 0; i < requests.size(); ++i)
        waiting_.push_back({i, requests[i].server});
}

std::optional<std::size_t> Queue::begin_next()
{
    if (busy_.size() >= jobs_)
        return std::nullopt;
    const auto next = std::find_if(waiting_.begin(), waiting_.end(), [&](const Waiting& candidate) {
        return busy_.count(candidate.server) == 0;
    });
    if (next == waiting_.end())
        return std::nullopt;
    const std::size_t number = next->number;
    busy_.insert(next->server);
    waiting_.erase(next);
    return number;
}

void Queue::ended(const std::string& server)
{
    busy_.erase(server);
    ++done_;
}
