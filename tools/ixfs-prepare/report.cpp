#include "report.h"

#include "standard_streams.h"

#include <cerrno>
#include <ixfs.h>
#include <system_error>
#include <unistd.h>

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
        print(format_json_line(result));
}

void Report::print_single(const Result& result)
{
    if (options_.json)
        print(format_json(result));
    else if (result.status != EC_OK)
        return;
    else if (options_.request.remove_view)
        print(result.status_text + "\n");
    else
        print(format_text(result));
}

void Report::summarize(std::size_t all)
{
    summary_.not_started = static_cast<int>(all) - summary_.prepared - summary_.failed;
    summary_.duration = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::steady_clock::now() - begin_);
    print(format_json_line(summary_));
}

int Report::exit_status(int signal) const
{
    if (signal != 0)
        return exit_signal + signal;
    if (summary_.still_mounted != 0)
        return exit_still_mounted;
    return summary_.failed != 0 || output_failed_ ? exit_failure : exit_success;
}

// Said once: whoever prepares many VMs is not told it for each of them.
void Report::print(const std::string& text)
{
    if (write_all(STDOUT_FILENO, text) || output_failed_)
        return;
    const int error = errno;
    output_failed_ = true;
    voice_.complain("standard output: " + std::generic_category().message(error));
}
