// The validation threads' way to the log callback.
#ifndef IXFS_CALLBACK_GATE_H
#define IXFS_CALLBACK_GATE_H

#include "ixfs.h"

#include <boost/smart_ptr/intrusive_ptr.hpp>
#include <boost/smart_ptr/intrusive_ref_counter.hpp>

#include <mutex>

// A validation thread may outlive its handle, but a caller expects no line once ixfs_term has
// returned. So the thread calls back through this gate, which ixfs_term closes. Owned by the handle
// and by each watch that a mount of the handle started. Any thread.
class CallbackGate : public boost::intrusive_ref_counter<CallbackGate>
{
public:
    explicit CallbackGate(ixfs_log_callback callback) : callback_(callback) {}

    // Hands a line to the callback, if there is one and the gate is open.
    void pass(int severity, const char* tag, const char* message)
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (callback_ != nullptr)
            callback_(severity, tag, message);
    }

    // Waits until a running callback has returned. After that no callback is made.
    void close()
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        callback_ = nullptr;
    }

private:
    std::mutex mutex_;
    ixfs_log_callback callback_; // null once closed
};

using CallbackGatePtr = boost::intrusive_ptr<CallbackGate>;

#endif
