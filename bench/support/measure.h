// How a figure is measured: only the call itself is between two looks at the clock.
#ifndef IXFS_BENCH_MEASURE_H
#define IXFS_BENCH_MEASURE_H

#include "cpu_time.h"

#include <benchmark/benchmark.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>

class Work
{
public:
    Work() = default;
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;
    virtual ~Work() = default;

    // Before each call, outside the clock.
    virtual void set_up() {}

    // What is measured. Returns whether it succeeded.
    virtual bool call() = 0;

    // After each call, outside the clock. Returns whether the call did its work.
    virtual bool is_done() { return true; }

    // How many operations one call does; the result is the time of one.
    virtual long operations() const { return 1; }
};

using Clock = double (*)(); // in seconds

// Adds the benchmark "<figure>/<what>": `what` is "ours", "floor" or another way to do the same. The
// work is made anew for each repetition. Allocations are counted, too, and wall time beside `clock`.
// Returns the benchmark, for further options.
benchmark::internal::Benchmark*
add_benchmark(const std::string& figure, const std::string& what,
              const std::function<std::unique_ptr<Work>()>& make_work, Clock clock = cpu_seconds);

// Adds a benchmark that takes the time itself, and hands it to SetIterationTime.
benchmark::internal::Benchmark*
add_benchmark(const std::string& name, const std::function<void(benchmark::State&)>& measure);

// Repetitions of a benchmark that takes long: what disturbs it for a moment hardly shows. Others are
// repeated as often as the command line says.
constexpr int few_repetitions = 5;

// Adds "<figure>/ours" and "<figure>/floor", two kinds of work that are each made of one argument.
template <typename Ours, typename Floor, typename Argument>
void add_ours_and_floor(const std::string& figure, Argument argument,
                        std::optional<int> repetitions = std::nullopt)
{
    for (benchmark::internal::Benchmark* const added :
         {add_benchmark(figure, "ours", [=] { return std::make_unique<Ours>(argument); }),
          add_benchmark(figure, "floor", [=] { return std::make_unique<Floor>(argument); })}) {
        if (repetitions)
            added->Repetitions(*repetitions);
    }
}

// Ends a measurement that has gone wrong.
void give_up(benchmark::State& state, const char* why);

// Whether none has.
bool all_calls_succeeded();

#endif
