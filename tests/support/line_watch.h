// A look at the world at the moment a line is logged.
#ifndef IXFS_TESTS_LINE_WATCH_H
#define IXFS_TESTS_LINE_WATCH_H

#include "handle_test.h"
#include "log_recorder.h"

#include <functional>
#include <string>
#include <utility>

// Puts another handle in the place of the test's, and looks whenever that logs, before the
// LogRecorder gets the line. The look is taken on whichever thread logs. Its end is the handle's.
// One at a time, since the callback has no context.
class LineWatch
{
public:
    using Look = std::function<void(const std::string& tag, const std::string& message)>;

    LineWatch(Handle& handle, Look look) : handle_(handle), look_(std::move(look))
    {
        current_ = this;
        handle_.reset(ixfs_init(0, nullptr, callback, nullptr, nullptr));
    }
    ~LineWatch() { handle_.reset(); }
    LineWatch(const LineWatch&) = delete;
    LineWatch& operator=(const LineWatch&) = delete;

private:
    static void callback(int severity, const char* tag, const char* message)
    {
        current_->look_(tag, message);
        LogRecorder::callback(severity, tag, message);
    }

    static inline LineWatch* current_ = nullptr;
    Handle& handle_;
    Look look_;
};

#endif
