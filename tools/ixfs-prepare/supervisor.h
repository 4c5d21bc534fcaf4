// Runs preparations, each in a worker process, and answers signals meanwhile.
#ifndef IXFS_PREPARE_SUPERVISOR_H
#define IXFS_PREPARE_SUPERVISOR_H

#include "console.h"
#include "ending_signals.h"
#include "outlet.h"
#include "preparation.h"
#include "queue.h"
#include "request.h"
#include "result.h"
#include "voice.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <vector>

// SIGINT, SIGTERM and SIGHUP end it, unless the caller ignores them. After the first one no further
// preparation begins, and those that run come to their end. The second one kills their workers;
// SIGHUP never counts as that, nor does what comes at once with the first.
//
// While its log is not read, a preparation stands still as soon as the log is full, but not while
// it holds the host's lock, and not after a signal.
//
// For a process without threads that has not used the library yet.
class Supervisor
{
public:
    using OnResult = std::function<void(const Result&)>;

    // `output` is what `on_result` writes to.
    Supervisor(Console& console, const Voice& voice, Outlet& output)
        : console_(console), voice_(voice), output_(output)
    {
    }

    // Works on requests of `jobs` servers at once, and of each server on one after another. Calls
    // `on_result` as each ends. One whose worker cannot be started has failed.
    void run(const std::vector<Request>& requests, int jobs, const OnResult& on_result);

    int signal() const { return signal_; } // the first that came, or 0
    bool gave_up() const { return gave_up_; }

private:
    void start_more(const std::vector<Request>& requests, Queue& queue, const OnResult& on_result);
    void wait_for_something();
    bool holds_back() const;
    void take_signals();
    void answer_first_signal(int signal);
    void give_up();
    void end(const Result& result, Queue& queue, const OnResult& on_result);
    void take_ended(Queue& queue, const OnResult& on_result);
    void announce_pauses();
    void show_progress(const Queue& queue);

    Console& console_;
    const Voice& voice_;
    Outlet& output_;
    EndingSignals signals_;
    std::list<Preparation> running_;
    std::size_t failed_ = 0;
    int signal_ = 0;
    bool gave_up_ = false;
};

#endif
