#include "fault_injection.h"

#include "process_mutex_set.h"

#include <ace/Process_Mutex.h>

#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <sys/sem.h>

namespace
{

void delete_set(int set)
{
    semctl(set, 0, IPC_RMID);
}

// Whether an operation takes something from the set, and so may find none or have to wait. ACE's
// guard is taken by waiting for 0.
bool takes(const sembuf& operation)
{
    return operation.sem_op == 0 ||
           (operation.sem_num == process_mutex_set::lock && operation.sem_op < 0);
}

bool takes_first(int, const sembuf* operations, std::size_t count)
{
    return count > 0 && takes(operations[0]);
}

bool signals_are_blocked()
{
    sigset_t blocked;
    pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
    return sigismember(&blocked, SIGUSR1) == 1;
}

bool is_process_mutex(std::size_t size)
{
    return size == sizeof(ACE_Process_Mutex);
}

// Opens files, folders and pipes by calls that are real with all that they call in their turn.
class RealOpenings
{
    decltype(interpose::on_open)::Hook open_ = interpose::on_open(
        [](const char* path, int flags) { return std::optional(open(path, flags, 0666)); });
    decltype(interpose::on_opendir)::Hook opendir_ = interpose::on_opendir([](const char* path) {
        return std::optional(open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    });
    decltype(interpose::on_popen)::Hook popen_ = interpose::on_popen(
        [](const char* command, const char* mode) { return std::optional(popen(command, mode)); });
};

Fault outside_of_openings(Fault fault)
{
    fault.arm = [arm = fault.arm](Trigger& trigger, FaultClock& clock) {
        auto armed = std::make_shared<std::pair<RealOpenings, ArmedFault>>();
        armed->second = arm(trigger, clock);
        return armed;
    };
    return fault;
}

} // namespace

std::string name_of(int error)
{
    return strerrorname_np(error);
}

Fault memory_is_null()
{
    return outside_of_openings(fails_where(interpose::on_allocation, ENOMEM, [](std::size_t size) {
        return !interpose::allocation_throws() && !is_process_mutex(size);
    }));
}

Fault memory_throws()
{
    return fails_where(interpose::on_allocation, ENOMEM,
                       [](std::size_t) { return interpose::allocation_throws(); });
}

Fault mutex_has_no_memory()
{
    return fails_where(interpose::on_allocation, ENOMEM, is_process_mutex);
}

Fault time_fails()
{
    return {"time", name_of(EOVERFLOW), [](Trigger& trigger, FaultClock& clock) {
                clock.fail_time(trigger);
                return ArmedFault();
            }};
}

Fault sleep_is_interrupted()
{
    return {"sleep", name_of(EINTR), [](Trigger& trigger, FaultClock& clock) {
                clock.fail_sleep(trigger);
                return ArmedFault();
            }};
}

Fault semop_has_no_memory()
{
    return fails_where(interpose::on_semop, ENOMEM, takes_first);
}

Fault semop_is_interrupted()
{
    return fails_where(
        interpose::on_semop, EINTR, [](int set, const sembuf* operations, std::size_t count) {
            return takes_first(set, operations, count) &&
                   (operations[0].sem_flg & IPC_NOWAIT) == 0 && !signals_are_blocked();
        });
}

Fault semop_finds_set_deleted()
{
    return answers(interpose::on_semop, "EINVAL", any_call, [](int set, sembuf*, std::size_t) {
        delete_set(set);
        return std::optional<int>();
    });
}

Fault semop_sees_set_deleted()
{
    return answers(interpose::on_semop, "EIDRM", takes_first, [](int set, sembuf*, std::size_t) {
        delete_set(set);
        return std::optional<int>(interpose::on_semop.failed(EIDRM));
    });
}

Fault semctl_finds_set_deleted()
{
    return answers(interpose::on_semctl, "EINVAL", any_call, [](int set, int, int, void*) {
        delete_set(set);
        return std::optional<int>();
    });
}

Fault set_cannot_be_deleted()
{
    return fails_where(interpose::on_semctl, EPERM,
                       [](int, int, int command, void*) { return command == IPC_RMID; });
}
