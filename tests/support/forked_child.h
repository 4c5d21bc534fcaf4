// Forks of the test process that share its handles.
#ifndef IXFS_TESTS_FORKED_CHILD_H
#define IXFS_TESTS_FORKED_CHILD_H

#include "child_process.h"

#include <cstdio>
#include <functional>

#include <gtest/gtest.h>

#include <unistd.h>

// There with a sanitizer that looks for leaks.
extern "C" __attribute__((weak)) int __lsan_do_recoverable_leak_check();
extern "C" __attribute__((weak)) void __lsan_ignore_object(const void*);

// What a child found, where GoogleTest's expectations count for nothing.
class ChildChecks
{
public:
    void expect(bool fulfilled, const char* what)
    {
        if (!fulfilled)
            dprintf(STDERR_FILENO, "in the child: not so: %s\n", what);
        failed_ += static_cast<int>(!fulfilled);
    }

    // Expects no leaks, where a sanitizer looks for them.
    void expect_no_leaks()
    {
        if (__lsan_do_recoverable_leak_check != nullptr)
            expect(__lsan_do_recoverable_leak_check() == 0, "nothing leaks");
    }

    int failed() const { return failed_; }

private:
    int failed_ = 0;
};

// Excuses the child of a process for what a thread of that process shares with it, and what hangs
// on that: the child does not have the thread, and nobody else may free it.
inline void leave_to_its_thread(const void* shared)
{
    if (__lsan_ignore_object != nullptr)
        __lsan_ignore_object(shared);
}

using ForkedBody = std::function<void(ChildChecks&)>;

// Runs `body` in a fork, whatever threads there are, and waits for it. Expects that it ends by
// itself and that all its checks hold. A Watchdog ends the test if the child hangs.
inline void in_forked_child(const ForkedBody& body)
{
    ChildProcess child(STDERR_FILENO, [&body](ChildProcess::Parent&) {
        ChildChecks checks;
        body(checks);
        return checks.failed();
    });
    EXPECT_EQ(child.wait(), 0);
}

#endif
