// Measures what figures.h names. Takes Google Benchmark's options, and --short.
#include "figures.h"
#include "support/files.h"
#include "support/measure.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <vector>

namespace
{

// Nothing but tests/support/in_namespace puts both there.
bool is_in_namespace()
{
    struct statfs status {
    };
    return statfs("/usr/varnis", &status) == 0 && status.f_type == TMPFS_MAGIC &&
           access("/usr/varnis/stowline/bin/ixfs", X_OK) == 0;
}

// Replaces --short by options of Google Benchmark: each benchmark runs once.
Extent take_extent(std::vector<char*>& arguments)
{
    static char shortest[] = "--benchmark_min_time=0";
    Extent extent = Extent::whole;
    for (char*& argument : arguments) {
        if (std::strcmp(argument, "--short") == 0) {
            argument = shortest;
            extent = Extent::short_run;
        }
    }
    return extent;
}

} // namespace

int main(int count, char** values)
{
    if (!is_in_namespace()) {
        std::fputs(
            "ixfs_bench: run it by script/bench, or by tests/support/in_namespace --helper\n",
            stderr);
        return 2;
    }
    if (!mount_work_folders()) {
        std::perror("ixfs_bench: cannot mount a tmpfs");
        return 1;
    }
    std::vector<char*> arguments(values, values + count);
    const Extent extent = take_extent(arguments);
    benchmark::Initialize(&count, arguments.data());
    if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
        return 2;
    add_alternative_figures(extent);
    add_configuration_figures(extent);
    add_descriptor_figures(extent);
    add_folder_delete_figures(extent);
    add_log_callback_figures(extent);
    add_log_figures();
    add_mount_figures(extent);
    add_path_figures();
    add_prepare_figures(extent);
    add_several_vms_figures(extent);
    add_threads_figures(extent);
    add_uuid_figures();
    add_waiting_figures(extent);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return all_calls_succeeded() ? 0 : 1;
}
