// A handle whose lines are recorded.
#ifndef IXFS_TESTS_HANDLE_TEST_H
#define IXFS_TESTS_HANDLE_TEST_H

#include "ixfs.h"
#include "log_recorder.h"

#include <gtest/gtest.h>

#include <memory>

struct HandleDeleter {
    void operator()(_ixfs_control_t* handle) const { ixfs_term(handle); }
};

using Handle = std::unique_ptr<_ixfs_control_t, HandleDeleter>;

// Makes a handle that logs to the current LogRecorder and, where one is given, to a job log.
inline Handle make_handle(int flags = 0, JobLogRecorder* job_log = nullptr)
{
    return Handle(ixfs_init(flags, nullptr, LogRecorder::callback,
                            job_log != nullptr ? JobLogRecorder::callback : nullptr, job_log));
}

// A fixture with a handle without flags. `log` has seen every line of it so far; a test that wants
// the lines of ixfs_term too calls handle.reset().
class HandleTest : public testing::Test
{
protected:
    LogRecorder log;
    JobLogRecorder job_log;
    Handle handle = make_handle(0, &job_log);
};

#endif
