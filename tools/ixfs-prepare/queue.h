// The order in which requests are worked on.
#ifndef IXFS_PREPARE_QUEUE_H
#define IXFS_PREPARE_QUEUE_H

#include "request.h"

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

// Requests of one server come one after another, in their order: a server's mounts have one mount
// directory. Those of different servers run at once.
class Queue
{
public:
    Queue(const std::vector<Request>& requests, int jobs);

    // The number of the next request that may begin now, if any.
    std::optional<std::size_t> begin_next();

    void ended(const std::string& server);

    // Nothing begins any more.
    void stop() { waiting_.clear(); }

    std::size_t all() const { return all_; }
    std::size_t done() const { return done_; }

private:
    struct Waiting {
        std::size_t number;
        std::string server;
    };

    std::vector<Waiting> waiting_;
    std::set<std::string> busy_; // servers
    std::size_t jobs_;
    std::size_t all_;
    std::size_t done_ = 0;
};

#endif
