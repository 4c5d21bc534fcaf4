// The system calls of a process: counted, and one of them made its last.
#ifndef IXFS_TESTS_TRACED_CALLS_H
#define IXFS_TESTS_TRACED_CALLS_H

#include <functional>

// Runs `body` in a process of its own, and kills that with SIGKILL where its first thread enters
// its `call`-th system call, which is then not made. The first is 1; the last few are the ones by
// which the process tells that `body` is done. Other threads run untraced, and so do the processes
// that it starts: they live on, and this waits for the end of each. Returns whether it came to the
// kill; if not, `body` ran to its end.
bool killed_at_system_call(int call, const std::function<void()>& body);

// Runs `body` in a process of its own, and returns how many system calls its first thread made,
// without those that get and give back memory.
int system_calls_made_by(const std::function<void()>& body);

#endif
