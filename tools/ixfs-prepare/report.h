// The results on standard output, and the exit status.
#ifndef IXFS_PREPARE_REPORT_H
#define IXFS_PREPARE_REPORT_H

#include "options.h"
#include "outlet.h"
#include "result.h"
#include "voice.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <unistd.h>

enum ExitStatus {
    exit_success = 0,
    exit_failure = 1,
    exit_bad_usage = 2,
    exit_still_mounted = 3,
    exit_signal = 128 // and the signal's number
};

class Report
{
public:
    Report(const Options& options, const Voice& voice) : options_(options), voice_(voice) {}

    // A result. Of a list, which --from asks for, a line is printed for each.
    void take(const Result& result);

    // The end of a list of `all`.
    void summarize(std::size_t all);

    Outlet& output() { return output_; }

    // Writes what is left of the output. `signal`: the one that ended the program, or 0.
    int finish(int signal);

private:
    void print_single(const Result& result);

    const Options& options_;
    const Voice& voice_;
    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    Summary summary_;
    Outlet output_{STDOUT_FILENO};
};

#endif
