// A mount and an unmount with a helper that does nothing, so that all but the helper's work counts:
// starting a shell and the helper twice, and what the library does around that. CPU time of this
// process and its children.
//
// The floor runs the same two commands with a semaphore around each, and no more. In its time the
// library also makes the server's mount directory, which stays for the next mount; reads the mount
// table twice; starts a validation thread, which ends after the unmount; and logs. At the unmount
// it deletes nothing here: it removes a mount point only if the helper has told a mount path.
//
// A caller may have much memory. To start a program must not copy its page tables, so a caller of
// 4 GiB should pay no more than one of 10 MiB.
#include "figures.h"
#include "floor/helper_turn.h"
#include "support/children_time.h"
#include "support/counting_log.h"
#include "support/measure.h"
#include "support/mounting.h"
#include "support/touched_memory.h"

#include <cstddef>
#include <memory>
#include <string>

namespace
{

constexpr char server[] = "media1";

// Many pairs of a mount and an unmount: the time of one varies.
class Pairs : public Work
{
public:
    explicit Pairs(std::size_t memory) : memory_(memory) {}

    bool call() override
    {
        bool all_succeeded = true;
        for (int i = 0; i < pairs; ++i)
            all_succeeded = mount_and_unmount() && all_succeeded;
        return all_succeeded;
    }
    long operations() const override { return pairs; }

protected:
    virtual bool mount_and_unmount() = 0;

private:
    static constexpr int pairs = 100;

    TouchedMemory memory_;
};

class Ours : public Pairs
{
public:
    explicit Ours(std::size_t memory) : Pairs(memory) {}

protected:
    bool mount_and_unmount() override { return handle_.mount() != nullptr && handle_.unmount(); }

private:
    MountingHandle handle_{server, count_line};
};

class Floor : public Pairs
{
public:
    explicit Floor(std::size_t memory) : Pairs(memory) {}
    Floor(const Floor&) = delete;
    Floor& operator=(const Floor&) = delete;
    ~Floor() override { floor_delete_semaphore(semaphore_); }

protected:
    bool mount_and_unmount() override
    {
        return floor_helper_turn(semaphore_, mount_.c_str(), nullptr) == 0 &&
               floor_helper_turn(semaphore_, unmount_.c_str(), nullptr) == 0;
    }

private:
    int semaphore_ = floor_semaphore();
    std::string mount_ = mount_command(server);
    std::string unmount_ = unmount_command(server);
};

template <typename Kind>
benchmark::internal::Benchmark* add(const std::string& size, const char* what, std::size_t bytes)
{
    return add_benchmark(
        "mount_unmount_" + size, what, [bytes] { return std::make_unique<Kind>(bytes); },
        cpu_seconds_with_children);
}

} // namespace

void add_mount_figures(Extent extent)
{
    constexpr std::size_t mebibyte = std::size_t{1} << 20;
    add<Ours>("10_MiB", "ours", 10 * mebibyte);
    add<Floor>("10_MiB", "floor", 10 * mebibyte);
    if (extent == Extent::short_run)
        return;
    add<Ours>("4_GiB", "ours", 4096 * mebibyte)->Repetitions(few_repetitions);
    add<Floor>("4_GiB", "floor", 4096 * mebibyte)->Repetitions(few_repetitions);
}
