// What a preparation came to, as text for people and as JSON.
#ifndef IXFS_PREPARE_RESULT_H
#define IXFS_PREPARE_RESULT_H

#include <chrono>
#include <optional>
#include <string>
#include <vector>

struct Result {
    // Whose it is, as in the request.
    std::string server;
    std::string backup_id;

    int status = 0;          // the library's, of this preparation
    std::string status_text; // or that of an exception, with the status 11
    std::string step;        // the last step that was begun, as of step_name; where it failed
    std::string disk;        // the disk that could not be prepared, as the caller named it, or ""

    std::optional<int> helper_exit_status; // of the helper's last run; none if it said none
    std::vector<std::string> helper_lines; // its last lines, masked; at most ten

    bool still_mounted = false;
    std::string mount_point; // if still mounted: where
    int signal = 0;          // the signal that the preparation was asked to end by, or 0
    std::chrono::milliseconds duration{0};

    std::vector<std::string> paths; // the view's descriptors in datastore form
    std::string configuration;      // may be there also after a failure
};

// What --from came to in all.
struct Summary {
    int prepared = 0;
    int failed = 0;
    int not_started = 0;   // after a signal
    int still_mounted = 0; // of the prepared and the failed ones
    std::chrono::milliseconds duration{0};
};

// The paths, and behind them the configuration, both byte for byte.
std::string format_text(const Result& result);

// Why it failed, in lines without a newline at the end: status, step and disk, what the helper
// said last, and whether the image is still mounted. Control characters are escaped.
std::string format_failure(const Result& result);

// A JSON object of many lines, or on one line. README.md tells its members.
std::string format_json(const Result& result);
std::string format_json_line(const Result& result);
std::string format_json_line(const Summary& summary);

#endif
