#include "attacker.h"

#include <cerrno>
#include <cstdio>
#include <new>
#include <string>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

std::atomic<bool>* make_flag()
{
    void* const memory = mmap(nullptr, sizeof(std::atomic<bool>), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        throw std::system_error(errno, std::generic_category(), "mmap");
    return new (memory) std::atomic<bool>(false);
}

// A step may come too late for what the preparation has removed. Else an attack that does not work
// would let every test pass.
void require_or_too_late(int result, const char* call)
{
    if (result != 0 && errno != ENOENT)
        throw std::system_error(errno, std::generic_category(), call);
}

void exchange(const std::string& one, const std::string& other)
{
    require_or_too_late(renameat2(AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), RENAME_EXCHANGE),
                        "renameat2");
}

} // namespace

void Attacker::Unmapper::operator()(std::atomic<bool>* flag) const
{
    munmap(flag, sizeof(*flag));
}

Attacker::Attacker(const Step& step)
    : stopped_(make_flag()), process_(STDERR_FILENO, [this, &step](ChildProcess::Parent& parent) {
          unsigned int round = 0;
          step(round);
          parent.pause();
          while (!*stopped_)
              step(++round);
          return 0;
      })
{
    process_.wait_for_pause();
    process_.go_on();
}

int Attacker::stop()
{
    *stopped_ = true;
    return process_.wait();
}

Attacker::Step exchanging(const std::string& place, const std::string& spare,
                          const std::vector<std::function<void(const std::string&)>>& decoys)
{
    constexpr unsigned int rounds_with_one = 64;
    return [=](unsigned int round) {
        if (round % rounds_with_one == 0)
            decoys[round / rounds_with_one % decoys.size()](spare);
        exchange(place, spare);
        exchange(place, spare);
    };
}

Attacker::Step replacing(const std::string& place, const std::string& spare,
                         const std::vector<std::function<void(const std::string&)>>& decoys)
{
    return [=](unsigned int round) {
        decoys[round % decoys.size()](spare);
        require_or_too_late(std::rename(spare.c_str(), place.c_str()), "rename");
    };
}

Attacker::Step growing(const std::string& path)
{
    return [=](unsigned int round) {
        const off_t size = (off_t{256} << 20) + round * (off_t{64} << 20);
        require_or_too_late(truncate(path.c_str(), size), "truncate");
        usleep(1000);
    };
}
