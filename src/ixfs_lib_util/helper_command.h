// Running the product's mount helper: its command lines, and what it answers.
#ifndef IXFS_HELPER_COMMAND_H
#define IXFS_HELPER_COMMAND_H

#include "bounded_text.h"
#include "log.h"

#include <cstdio>
#include <ctime>
#include <memory>
#include <optional>

struct _ixfs_mount_t;

// One command line as the shell gets it, and as the log shows it.
class HelperCommand
{
public:
    static HelperCommand mount(const _ixfs_mount_t& record, const char* mount_directory);
    static HelperCommand unmount(const _ixfs_mount_t& record);

    // Cuts the displayed line at its length plus eight less the credential's, and appends "...".
    // This does not hide the credential: with one of common length only the path after it is cut.
    void cut_display(const char* credential);

    bool built() const { return line_[0] != '\0'; }
    const char* line() const { return line_; }
    const char* display() const { return display_; }

private:
    HelperCommand() = default;

    void formatted(int length); // the formatter's result, negative where it failed

    char line_[text_size] = "";
    char display_[text_size] = "";
};

// Takes the exit status from a response line that begins with its key, and tells whether it does.
bool take_exit_status(const char* line, int& exit_status);

// What one run of the helper prints. The run is over when this ends: it then waits for the helper.
// How the helper exits is of no interest, only what it printed.
class HelperOutput
{
public:
    explicit HelperOutput(FILE* pipe) : pipe_(pipe) {}

    // Returns the next line, without its newline; null at the end. A line of more than 1,023 bytes
    // comes in pieces. Empty lines are passed over. Valid until the next call.
    const char* next_line();

private:
    struct PipeCloser {
        void operator()(FILE* pipe) const { pclose(pipe); }
    };

    bool read_line();

    std::unique_ptr<FILE, PipeCloser> pipe_;
    char line_[text_size] = "";
};

// Runs a command, again and again while the server is too busy:
//
//     HelperRun run(log, command, timeout);
//     while (std::optional<HelperOutput> output = run.start()) {
//         read_answers(std::move(*output), ...); // the helper has ended when this returns
//         if (!run.again(exit_status))
//             break;
//     }
//     return run.status();
//
// Leaving the loop early is fine, too. `log` and `command` must outlive the run.
class HelperRun
{
public:
    // `timeout` says for how many seconds from now a busy server is tried again. Setting the
    // system's clock does not change that.
    HelperRun(const Log& log, const HelperCommand& command, int timeout);

    // Starts the helper. Returns nothing if it cannot be started; the reason was logged, and
    // status() is EC_SYSTEM_ERROR.
    std::optional<HelperOutput> start();

    // Returns whether to run the helper again; if so, a second has passed. If not: the exit status
    // is 0 (nothing is logged), the time is up (logged), or it is any other status (logged, and
    // status() is EC_HELPER_FAILED).
    bool again(int exit_status);

    // EC_OK, or the failure that ended the run.
    ec_status status() const { return status_; }

private:
    const Log& log_;
    const HelperCommand& command_;
    std::time_t end_; // of trying again, by the monotonic clock
    ec_status status_ = EC_OK;
};

#endif
