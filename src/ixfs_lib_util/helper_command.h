// Running the product's mount helper: its command lines, and what it answers.
#ifndef IXFS_HELPER_COMMAND_H
#define IXFS_HELPER_COMMAND_H

#include "bounded_text.h"
#include "log.h"

#include <cstdio>
#include <ctime>
#include <memory>

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

// Runs a command, again and again while the server is too busy:
//
//     HelperRun run(log, command, timeout);
//     while (run.start()) {
//         while (const char* const line = run.next_line())
//             ...
//         run.finish();
//         if (!run.again(exit_status))
//             break;
//     }
//     return run.status();
//
// Leaving the loop early is fine, too. `log` and `command` must outlive the run.
class HelperRun
{
public:
    // `timeout` says for how many seconds from now a busy server is tried again.
    HelperRun(const Log& log, const HelperCommand& command, int timeout);

    // Starts the helper. Returns whether it runs; else a line told why not, and status() is
    // EC_SYSTEM_ERROR.
    bool start();

    // Returns the next line that the helper prints, without its newline, or a buffer full of a
    // longer one; null at the end. Empty lines are passed over. Valid until the next call.
    const char* next_line();

    // Waits for the helper's end. How it exits is of no interest: what it printed counts.
    void finish() { output_.reset(); }

    // Decides, on the exit status that the helper printed, whether to run it again, and then has
    // waited a second. Else the run is over: it succeeded, the time is up, or status() is
    // EC_HELPER_FAILED. Only success goes without a line.
    bool again(int exit_status);

    // EC_OK, or the failure that ended the run.
    ec_status status() const { return status_; }

private:
    struct PipeCloser {
        void operator()(FILE* pipe) const { pclose(pipe); }
    };

    bool read_line();

    const Log& log_;
    const HelperCommand& command_;
    std::time_t end_; // of trying again
    std::unique_ptr<FILE, PipeCloser> output_;
    char line_[text_size] = "";
    ec_status status_ = EC_OK;
};

#endif
