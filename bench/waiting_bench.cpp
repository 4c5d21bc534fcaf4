// How long processes wait for each other when all of them mount and unmount all the time. Wall
// time: the processes sleep while they wait.
//
// Each run of the helper takes 20 ms. So a queue of n processes needs at least 20 ms for a turn,
// and nobody waits less than n - 1 turns.
#include "figures.h"
#include "floor/helper_turn.h"
#include "support/measure.h"
#include "support/mounting.h"
#include "support/turns.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstring>
#include <string>
#include <unistd.h>

namespace
{

constexpr char helper_lasts[] = "20"; // milliseconds

// Each process mounts a server of its own: two mounts of one server would share a directory.
std::string own_server()
{
    return "media" + std::to_string(getpid());
}

// A wait begins with a line of its own, and the next line comes from who has the mutex. The
// validation thread has lines, too, but it is another thread.
void note_turns(int /*severity*/, const char* /*tag*/, const char* message)
{
    thread_local bool is_waiting = false;
    thread_local double begin = 0;
    if (is_waiting)
        Turns::note(wall_seconds() - begin);
    is_waiting = std::strstr(message, "waiting for mount mutex") != nullptr;
    begin = wall_seconds();
}

bool mount_and_unmount()
{
    static const MountingHandle handle(own_server(), note_turns);
    return handle.mount() != nullptr && handle.unmount();
}

bool take_floor_turn(int semaphore, const std::string& command)
{
    double waited = 0;
    const bool went_well = floor_helper_turn(semaphore, command.c_str(), &waited) == 0;
    Turns::note(waited);
    return went_well;
}

bool take_floor_turns(int semaphore)
{
    static const std::string server = own_server();
    return take_floor_turn(semaphore, mount_command(server)) &&
           take_floor_turn(semaphore, unmount_command(server));
}

// One iteration is one pair of turns, of any of the processes.
void run(benchmark::State& state, int processes, int turns, const Turns::Pair& pair)
{
    const SlowHelper helper(helper_lasts);
    while (state.KeepRunning()) {
        const Turns::Result result = Turns::take(processes, turns, pair);
        if (!result.all_went_well)
            return give_up(state, "a process could not mount or unmount");
        state.SetIterationTime(result.seconds_per_pair);
        state.counters["pairs_per_second"] = 1 / result.seconds_per_pair;
        state.counters["median_wait"] = result.median_wait;
        state.counters["longest_wait"] = result.longest_wait;
        state.counters["longest_by_median"] = result.longest_wait / result.median_wait;
    }
}

void ours(benchmark::State& state, int processes, int turns)
{
    run(state, processes, turns, mount_and_unmount);
}

void floor(benchmark::State& state, int processes, int turns)
{
    const int semaphore = floor_semaphore();
    run(state, processes, turns, [semaphore] { return take_floor_turns(semaphore); });
    floor_delete_semaphore(semaphore);
}

// No Work: the processes themselves look at the clock, once they are in full swing, and there is
// more than one result.
template <typename Function>
void add(const std::string& name, Function function, int processes, int turns, int repetitions)
{
    const auto measure = [=](benchmark::State& state) {
        function(state, processes, turns);
    };
    add_benchmark(name, measure)->Repetitions(repetitions)->Iterations(1);
}

} // namespace

void add_waiting_figures(Extent extent)
{
    const bool is_whole = extent == Extent::whole;
    const int most_processes = is_whole ? 64 : 2;
    const int fewest_turns = is_whole ? 100 : 4;
    const int turns_of_each = is_whole ? 4 : 1;
    // A queue of 32 has goals, so it is measured more often. Its repetitions take six seconds.
    constexpr int with_goals = 32;
    for (int processes = 1; processes <= most_processes; processes *= 2) {
        const std::string figure = "waiting_" + std::to_string(processes) + "_processes";
        const int repetitions = !is_whole ? 1 : processes == with_goals ? 7 : 3;
        const int turns = std::max(fewest_turns, turns_of_each * processes);
        add(figure + "/ours", ours, processes, turns, repetitions);
        add(figure + "/floor", floor, processes, turns, repetitions);
    }
}
