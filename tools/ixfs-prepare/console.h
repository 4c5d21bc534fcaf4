// Standard error: lines, and on a terminal one line below them that shows the progress.
#ifndef IXFS_PREPARE_CONSOLE_H
#define IXFS_PREPARE_CONSOLE_H

#include "outlet.h"

#include <string>
#include <string_view>
#include <unistd.h>

// A standard error that is closed or broken is written to no less; nothing fails.
class Console
{
public:
    // progress  whether it is wanted. It is shown on a terminal that can move its cursor, and
    //           nowhere else
    explicit Console(bool progress);
    ~Console();
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    // Whole lines.
    void print(std::string_view lines);
    void print_failure(std::string_view lines); // red, where there is colour

    bool shows_progress() const { return progress_; }

    // Replaces the progress line by another, cut to the terminal's width.
    void show_progress(const std::string& line);
    void hide_progress();

    Outlet& errors() { return errors_; }

    // Writes all that is left.
    void finish() { errors_.finish(patient_); }

    // A reader that takes nothing is not waited for any more.
    void hurry() { patient_ = false; }

private:
    Outlet errors_{STDERR_FILENO};
    bool patient_ = true;
    bool progress_;
    bool colour_;
    std::string shown_; // the progress line on the terminal, or ""
};

#endif
