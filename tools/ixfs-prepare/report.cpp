#include "report.h"

#include <ixfs.h>
#include <system_error>

void Report::take(const Result& result)
{
    const bool prepared = result.status == EC_OK;
    ++(prepared ? summary_.prepared : summary_.failed);
    summary_.still_mounted += result.still_mounted ? 1 : 0;
    if (!prepared || result.still_mounted) {
        Request request;
        request.server = result.server;
        request.backup_id = result.backup_id;
        voice_.complain(format_failure(result), request);
    }
    if (options_.from.empty())
        print_single(result);
    else
        output_.write(format_json_line(result));
}

void Report::print_single(const Result& result)
{
    if (options_.json)
        output_.write(format_json(result));
    else if (result.status != EC_OK)
        return;
    else if (options_.request.remove_view)
        output_.write(result.status_text + "\n");
    else
        output_.write(format_text(result));
}

void Report::summarize(std::size_t all)
{
    summary_.not_started = static_cast<int>(all) - summary_.prepared - summary_.failed;
    summary_.duration = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - begin_);
    output_.write(format_json_line(summary_));
}

int Report::finish(int signal)
{
    output_.finish(signal == 0);
    if (output_.error() != 0)
        voice_.complain("standard output: " + std::generic_category().message(output_.error()));
    if (signal != 0)
        return exit_signal + signal;
    if (summary_.still_mounted != 0)
        return exit_still_mounted;
    return summary_.failed != 0 || output_.error() != 0 ? exit_failure : exit_success;
}
