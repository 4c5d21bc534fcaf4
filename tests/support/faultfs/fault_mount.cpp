#include "fault_mount.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <new>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

namespace faultfs
{

namespace
{

int checked(int result, const char* what)
{
    if (result == -1)
        throw std::system_error(errno, std::generic_category(), what);
    return result;
}

// A file descriptor with an owner.
class Descriptor
{
public:
    explicit Descriptor(int number) : number_(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { close(); }

    int number() const { return number_; }

    void close()
    {
        if (number_ != -1)
            ::close(std::exchange(number_, -1));
    }

private:
    int number_;
};

pid_t start(std::string source, std::string mount_point, FaultMount::Numbers numbers, int rules,
            int told)
{
    std::string program = IXFS_FAULTFS_PROGRAM;
    std::string by_name = "number-by-name";
    const std::array<char*, 5> arguments = {
        program.data(), source.data(), mount_point.data(),
        numbers == FaultMount::Numbers::by_name ? by_name.data() : nullptr, nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, rules, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, told, STDOUT_FILENO);
    pid_t process = -1;
    const int error =
        posix_spawn(&process, program.c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), program);
    return process;
}

} // namespace

std::string FaultMount::obstacle()
{
    if (Descriptor(open("/dev/fuse", O_RDWR | O_CLOEXEC)).number() != -1)
        return {};
    return std::string("/dev/fuse cannot be opened: ") + std::strerror(errno);
}

void FaultMount::Unmapper::operator()(Rules* rules) const
{
    munmap(rules, sizeof(Rules));
}

FaultMount::FaultMount(const std::string& source, const std::string& mount_point, Numbers numbers)
    : mount_point_(mount_point)
{
    const Descriptor memory(checked(memfd_create("faultfs", MFD_CLOEXEC), "memfd_create"));
    checked(ftruncate(memory.number(), sizeof(Rules)), "ftruncate");
    void* const mapped =
        mmap(nullptr, sizeof(Rules), PROT_READ | PROT_WRITE, MAP_SHARED, memory.number(), 0);
    if (mapped == MAP_FAILED)
        throw std::system_error(errno, std::generic_category(), "mmap");
    rules_.reset(new (mapped) Rules);

    std::array<int, 2> ends{};
    checked(pipe2(ends.data(), O_CLOEXEC), "pipe2");
    const Descriptor ours(ends[0]);
    Descriptor theirs(ends[1]);
    process_ = start(source, mount_point, numbers, memory.number(), theirs.number());
    theirs.close(); // so that its death reads as the end
    char mounted = 0;
    if (read(ours.number(), &mounted, 1) != 1) {
        end();
        throw std::runtime_error("ixfs-faultfs cannot mount " + mount_point);
    }
}

FaultMount::~FaultMount()
{
    end();
}

int FaultMount::end()
{
    if (process_ == -1)
        return wait_status_;
    kill(process_, SIGTERM);
    while (waitpid(process_, &wait_status_, 0) == -1 && errno == EINTR) {
    }
    process_ = -1;
    return wait_status_;
}

} // namespace faultfs
