// Which process this is, and what a fork does to it.
#ifndef IXFS_THIS_PROCESS_H
#define IXFS_THIS_PROCESS_H

#include <mutex>

#include <sys/types.h>

// Tells a process from all that it was forked from. The id alone does not: in a namespace of its
// own a forked process may have the id that its parent has in another. The number of forks alone
// does not, either: the C library does not see a fork by a bare system call.
struct ProcessIdentity {
    pid_t id;
    unsigned int forks; // that lie between it and the process that loaded the library
};

inline bool operator==(const ProcessIdentity& left, const ProcessIdentity& right)
{
    return left.id == right.id && left.forks == right.forks;
}

// Any thread.
ProcessIdentity this_process();

// Each fork() of the process waits for this lock, and copies it unlocked. It guards what a child
// must not get half done: the child does not have the thread that would do the rest. Hold it
// shortly.
std::recursive_mutex& fork_mutex();

#endif
