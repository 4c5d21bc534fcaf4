#include "host_locks.h"

#include "proc_file.h"
#include "processes.h"
#include "product.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <sstream>
#include <string_view>
#include <sys/sem.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

namespace
{

// The semaphores of a lock. Who opens, closes or deletes it raises the guard meanwhile. `users` is
// 0 in a set that was just created, and then 10,000 less one for each user. `lock` is 1 while it is
// free.
enum Semaphore : unsigned short { guard, users, lock };
constexpr std::size_t set_size = 3;
constexpr int no_users = 10000;

constexpr unsigned int lock_mode = 0644;

using Values = std::array<unsigned short, set_size>;

union SemctlArgument { // semctl's caller declares it
    semid_ds* status;
    seminfo* info;
    unsigned short* values;
};

bool is_gone(int error)
{
    return error == EIDRM || error == EINVAL;
}

// CRC-32 of the name, as ACE makes keys.
key_t lock_key(std::string_view name)
{
    constexpr std::uint32_t polynomial = 0xedb88320;
    std::uint32_t remainder = 0xffffffff;
    for (const char character : name) {
        remainder ^= static_cast<unsigned char>(character);
        for (int bit = 0; bit < 8; ++bit)
            remainder = (remainder >> 1) ^ ((remainder & 1) != 0 ? polynomial : 0);
    }
    return static_cast<key_t>(~remainder);
}

std::optional<semid_ds> status_of(int set)
{
    semid_ds status{};
    SemctlArgument argument{};
    argument.status = &status;
    if (semctl(set, 0, IPC_STAT, argument) == -1)
        return std::nullopt;
    return status;
}

std::optional<Values> values_of(int set)
{
    Values values{};
    SemctlArgument argument{};
    argument.values = values.data();
    if (semctl(set, 0, GETALL, argument) == -1)
        return std::nullopt;
    return values;
}

bool is_unused(const Values& values)
{
    return values[users] == 0 || values[users] == no_users;
}

// A set of three semaphores as a lock, or nothing, with errno.
std::optional<HostLock> read_lock(int set, const semid_ds& status)
{
    const std::optional<Values> values = values_of(set);
    const int holder = semctl(set, lock, GETPID);
    const int waiting = semctl(set, lock, GETNCNT);
    if (!values || holder == -1 || waiting == -1)
        return std::nullopt;
    HostLock found{};
    found.set = set;
    found.key = status.sem_perm.__key;
    found.creator = status.sem_perm.cuid;
    found.users = is_unused(*values) ? 0 : no_users - (*values)[users];
    found.ready = (*values)[users] != 0;
    found.held = found.ready && (*values)[lock] == 0;
    found.holder = found.held ? holder : 0;
    found.waiting = waiting;
    found.busy = (*values)[guard] != 0;
    return found;
}

bool looks_like_view_lock(const semid_ds& status)
{
    const uid_t creator = status.sem_perm.cuid;
    return status.sem_nsems == set_size && status.sem_perm.__key != IPC_PRIVATE &&
           status.sem_perm.__key != lock_key(mount_mutex_name) &&
           (status.sem_perm.mode & 0777U) == lock_mode && (creator == 0 || creator == geteuid());
}

bool has_values_of_lock(const Values& values)
{
    return values[guard] <= 1 && values[users] >= 1 && values[users] <= no_users &&
           values[lock] <= 1;
}

bool change_guard(int set, short by)
{
    sembuf operations[] = {{guard, 0, IPC_NOWAIT}, {guard, by, SEM_UNDO | IPC_NOWAIT}};
    sembuf* const first = by > 0 ? &operations[0] : &operations[1];
    const std::size_t count = by > 0 ? 2 : 1;
    int result = 0;
    do
        result = semop(set, first, count);
    while (result == -1 && errno == EINTR);
    return result == 0;
}

// The number of a system call that a thread is in, and its first argument. Such a line is "65
// 0x8000 0x7ffd...", and "running" for a thread that is in none.
bool waits_for(int set, const std::string& line)
{
    long call = -1;
    unsigned long argument = 0;
    std::istringstream fields(line);
    fields >> call >> std::hex >> argument;
    return fields && (call == SYS_semop || call == SYS_semtimedop) &&
           argument == static_cast<unsigned long>(set);
}

} // namespace

std::optional<HostLock> find_mount_mutex()
{
    for (;;) {
        const int set = semget(lock_key(mount_mutex_name), 0, 0);
        if (set == -1 && errno == ENOENT)
            return std::nullopt;
        const std::optional<semid_ds> status = set != -1 ? status_of(set) : std::nullopt;
        if (status && status->sem_nsems != set_size)
            throw std::system_error(EEXIST, std::generic_category(),
                                    "semaphore set " + std::to_string(set) +
                                        " has the mount mutex's key, but another layout");
        std::optional<HostLock> found = status ? read_lock(set, *status) : std::nullopt;
        if (found)
            return found;
        if (!is_gone(errno))
            throw std::system_error(errno, std::generic_category(), "the mount mutex");
    }
}

std::vector<HostLock> find_view_locks()
{
    seminfo info{};
    SemctlArgument argument{};
    argument.info = &info;
    const int last = semctl(0, 0, SEM_INFO, argument);
    std::vector<HostLock> locks;
    for (int index = 0; index <= last; ++index) {
        semid_ds status{};
        argument.status = &status;
        const int set = semctl(index, 0, SEM_STAT, argument);
        if (set == -1 || !looks_like_view_lock(status))
            continue;
        const std::optional<Values> values = values_of(set);
        if (!values || !has_values_of_lock(*values))
            continue;
        if (const std::optional<HostLock> found = read_lock(set, status))
            locks.push_back(*found);
    }
    return locks;
}

bool semaphores_are_used_up()
{
    seminfo info{}; // SEM_INFO has the numbers in use in two of the fields
    SemctlArgument argument{};
    argument.info = &info;
    if (semctl(0, 0, SEM_INFO, argument) == -1)
        return false;
    return info.semusz >= info.semmni || info.semaem + static_cast<int>(set_size) > info.semmns;
}

std::vector<pid_t> processes_waiting_for(const HostLock& lock)
{
    std::vector<pid_t> waiting;
    for (const pid_t pid : processes_of_this_host()) {
        const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
        for (const int task : numbers_in_proc(tasks)) {
            const std::string file = tasks + "/" + std::to_string(task) + "/syscall";
            if (waits_for(lock.set, read_proc_file(file).value_or(""))) {
                waiting.push_back(pid);
                break;
            }
        }
    }
    return waiting;
}

// Who opens the lock needs the guard first. While it is ours, whoever comes waits, and makes a new
// lock once this one is gone.
bool delete_unused(const HostLock& lock)
{
    if (!change_guard(lock.set, 1)) {
        if (errno == EAGAIN)
            errno = EBUSY;
        return false;
    }
    const std::optional<semid_ds> status = status_of(lock.set);
    const std::optional<Values> values = values_of(lock.set);
    const bool is_same = status && status->sem_perm.__key == lock.key;
    if (is_same && values && is_unused(*values)) {
        if (semctl(lock.set, 0, IPC_RMID) == 0)
            return true;
    } else {
        errno = EBUSY;
    }
    const int error = errno;
    change_guard(lock.set, -1);
    errno = error;
    return false;
}
