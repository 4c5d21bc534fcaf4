// The command line.
#ifndef IXFS_PREPARE_OPTIONS_H
#define IXFS_PREPARE_OPTIONS_H

#include "log_output.h"
#include "request.h"

#include <string>

// Where the two credentials come from. Nothing is set where none are given.
struct CredentialSource {
    std::string mount_file;
    std::string unmount_file;
    bool standard_input = false;
};

struct Options {
    // What is to be done, still without credentials and without the disks of `disks_from`. With
    // `from` it holds what the lines there may leave out, and may be incomplete: `port` is then 0 and
    // `schedule_type` -1 where it is not given. read_requests() completes and checks it.
    Request request;
    CredentialSource credentials;
    std::string disks_from; // a file of disks, "-" for standard input, or ""

    std::string from; // a file of VMs, "-" for standard input, or ""
    int jobs = 1;     // with `from`: how many servers are worked on at once

    bool dry_run = false;
    bool yes = false; // remove the view (request.remove_view) without asking
    bool json = false;
    LogStyle log;

    std::string information; // text of --help or --version; where it is set nothing else is
};

// Reads the command line, and checks what can be checked without reading a file. Throws UsageError.
Options parse_options(int argc, char** argv);

#endif
