#include "this_process.h"

#include <new>

#include <pthread.h>
#include <unistd.h>

namespace
{

std::recursive_mutex mutex; // recursive: a signal handler of a thread that holds it may fork

unsigned int forks; // written only where a process has one thread: in a new child

void begin_fork()
{
    mutex.lock();
}

void end_fork_in_parent()
{
    mutex.unlock();
}

void end_fork_in_child()
{
    new (&mutex) std::recursive_mutex; // a child cannot unlock what its parent's thread has locked
    ++forks;
}

// If memory is short for this, the process id alone has to do.
[[maybe_unused]] const int follows_forks =
    pthread_atfork(begin_fork, end_fork_in_parent, end_fork_in_child);

} // namespace

ProcessIdentity this_process()
{
    return {getpid(), forks};
}

std::recursive_mutex& fork_mutex()
{
    return mutex;
}
