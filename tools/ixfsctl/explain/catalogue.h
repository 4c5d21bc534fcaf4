// The tables of docs/log-lines.md and docs/statuses.md, as the program knows them. Texts are without
// the documents' marks for emphasis and links.
#ifndef IXFSCTL_CATALOGUE_H
#define IXFSCTL_CATALOGUE_H

#include <string_view>
#include <vector>

struct LogRow {
    std::string_view section;
    std::string_view tags; // of several: "ixfs_mount(), ixfs_unmount()"
    int severity;
    std::string_view text;   // %s, %d and %ld stand for values
    std::string_view advice; // when it comes and what to do; empty for a line that is normal
    bool in_job_log;
    bool has_status; // its numbers are statuses
};

struct StatusRow {
    int number;
    std::string_view name;
    std::string_view from;
    std::string_view text;
    std::string_view advice;
};

// In the documents' order.
const std::vector<LogRow>& log_rows();
const std::vector<StatusRow>& status_rows();

#endif
