#include "this_process.h"

#include <pthread.h>
#include <unistd.h>

namespace
{

unsigned int forks; // written only where a process has one thread: in a new child

// If memory is short for this, the process id alone has to do.
[[maybe_unused]] const int counts_forks = pthread_atfork(nullptr, nullptr, [] { ++forks; });

} // namespace

ProcessIdentity this_process()
{
    return {getpid(), forks};
}
