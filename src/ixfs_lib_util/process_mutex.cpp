#include "process_mutex.h"

#include <ace/Process_Mutex.h>

#include <cerrno>
#include <new>

namespace
{

constexpr mode_t lock_mode = 0644;

// What an acquire says whose lock was deleted while it waited, or before.
bool lock_was_deleted()
{
    return errno == EIDRM || errno == EINVAL;
}

} // namespace

std::unique_ptr<ACE_Process_Mutex> open_process_mutex(const char* name)
{
    errno = 0;
    return std::unique_ptr<ACE_Process_Mutex>(new (std::nothrow)
                                                  ACE_Process_Mutex(name, nullptr, lock_mode));
}

bool acquire_process_mutex(std::unique_ptr<ACE_Process_Mutex>& mutex, const char* name)
{
    while (mutex != nullptr) {
        errno = 0; // an object without a lock fails and sets nothing
        if (mutex->acquire() == 0)
            return true;
        if (!lock_was_deleted())
            return false;
        mutex = open_process_mutex(name);
    }
    return false;
}
