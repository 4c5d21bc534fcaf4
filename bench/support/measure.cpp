#include "measure.h"

#include "allocations.h"

namespace
{

bool all_succeeded = true;

void measure(benchmark::State& state, Work& work, Clock clock)
{
    long allocated = 0;
    double wall = 0;
    while (state.KeepRunningBatch(work.operations())) {
        work.set_up();
        const long allocated_before = allocations();
        const double wall_start = wall_seconds();
        const double start = clock();
        const bool succeeded = work.call();
        const double end = clock();
        wall += wall_seconds() - wall_start;
        allocated += allocations() - allocated_before;
        state.SetIterationTime(end - start);
        if (!succeeded || !work.is_done()) {
            give_up(state, "the measured call failed");
            return;
        }
    }
    const auto iterations = static_cast<double>(state.iterations());
    state.counters["allocations"] = static_cast<double>(allocated) / iterations;
    state.counters["wall_seconds"] = wall / iterations;
}

} // namespace

void give_up(benchmark::State& state, const char* why)
{
    all_succeeded = false;
    state.SkipWithError(why);
}

bool all_calls_succeeded()
{
    return all_succeeded;
}

benchmark::internal::Benchmark*
add_benchmark(const std::string& figure, const std::string& what,
              const std::function<std::unique_ptr<Work>()>& make_work, Clock clock)
{
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): the registry owns it
    return add_benchmark(figure + "/" + what, [make_work, clock](benchmark::State& state) {
        measure(state, *make_work(), clock);
    });
}

benchmark::internal::Benchmark* add_benchmark(const std::string& name,
                                              const std::function<void(benchmark::State&)>& measure)
{
    return benchmark::RegisterBenchmark(name.c_str(), measure)
        ->UseManualTime()
        ->Unit(benchmark::kMicrosecond);
}
