// The process in which the library runs.
//
// It is apart from the program that was started, so that nothing that happens to that one, a signal
// or the end of its terminal, stops a preparation half-way: the image would stay mounted.
#ifndef IXFS_PREPARE_WORKER_H
#define IXFS_PREPARE_WORKER_H

#include "open_descriptor.h"
#include "request.h"

#include <functional>
#include <string>
#include <sys/types.h>

class Worker
{
public:
    // Starts the process. To be called before this process has any thread. `in_child` runs first in
    // the child. Throws std::system_error.
    //
    // The child has a session of its own, so that what is typed on the terminal does not reach it
    // or the helper; nothing on standard input; no other descriptor of this process; and a handler
    // that does nothing for the signals that would end it, so that the helper gets the usual ones.
    Worker(const Request& request, const std::function<void()>& in_child);

    // If the process still runs, it goes on to its end, and nobody listens.
    ~Worker() = default;
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    pid_t pid() const { return pid_; }

    // What to read from, without waiting: records (records.h), whose end is that of the process;
    // and what it and the helper write to standard error, which a helper may hold open for longer.
    OpenDescriptor& records() { return records_; }
    OpenDescriptor& errors() { return errors_; }

    // Stops the process; returns when it stands still. False if it has ended.
    bool stop();
    void go_on();

    void kill();

    // Waits for its end. Returns the signal that ended it, or 0.
    int wait();

private:
    void start(const Request& request, const std::function<void()>& in_child);

    pid_t pid_ = -1;
    bool ended_ = false;
    int end_signal_ = 0;
    OpenDescriptor records_;
    OpenDescriptor errors_;
};

#endif
