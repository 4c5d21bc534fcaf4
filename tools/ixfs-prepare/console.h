// Standard error: lines, and on a terminal one line below them that shows the progress.
#ifndef IXFS_PREPARE_CONSOLE_H
#define IXFS_PREPARE_CONSOLE_H

#include <string>
#include <string_view>

// A standard error that is closed or broken is written to no less; nothing fails.
class Console
{
public:
    // progress  whether it is wanted. It is shown on a terminal that can move its cursor, and
    //           nowhere else
    explicit Console(bool progress);
    ~Console() { hide_progress(); }
    Console(const Console&) = delete;
    Console& operator=(const Console&) = delete;

    // Whole lines.
    void print(std::string_view lines);
    void print_failure(std::string_view lines); // red, where there is colour

    bool shows_progress() const { return progress_; }

    // Replaces the progress line by another, cut to the terminal's width.
    void show_progress(const std::string& line);
    void hide_progress();

private:
    bool progress_;
    bool colour_;
    std::string shown_; // the progress line on the terminal, or ""
};

#endif
