// A program that runs beside the test, which sends it signals and reads what it says meanwhile.
#ifndef IXFS_TESTS_STARTED_PROGRAM_H
#define IXFS_TESTS_STARTED_PROGRAM_H

#include "program.h"
#include "temp_dir.h"

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <sys/types.h>

struct ProgramSetup {
    std::string input;                    // what it reads; with a terminal, nothing
    bool on_terminal = false;             // standard error is one, and its controlling terminal
    int columns = 80;                     // of the terminal
    std::vector<int> ignored_signals;     // that it finds ignored
    std::vector<std::string> environment; // "NAME=value", added to the test's
};

// Is killed with its object, if it still runs. What does not come within a minute throws.
class StartedProgram
{
public:
    explicit StartedProgram(const std::vector<std::string>& command,
                            const ProgramSetup& setup = {});
    ~StartedProgram();
    StartedProgram(const StartedProgram&) = delete;
    StartedProgram& operator=(const StartedProgram&) = delete;

    pid_t pid() const { return pid_; }
    void send(int signal) const;

    // As if typed on its terminal.
    void type(const std::string& keys) const;

    // Reads standard error until it holds the text.
    void wait_for(const std::string& text);
    const std::string& errors() const { return errors_; } // read so far
    void read_what_is_there();

    // What it has printed on standard output so far.
    std::string output() const { return folder_.read("output"); }

    // Waits, without reading, until the pipe that is its standard error has no free page.
    void wait_until_errors_are_full() const;

    // Reads standard error to its end, and waits for the program's.
    ProgramResult wait();

private:
    bool read_errors();

    TempDir folder_;
    int errors_source_;
    std::string errors_;
    pid_t pid_ = -1;
};

// Looks again and again, until a minute is over. Returns whether it became true.
template <typename Condition>
bool comes_true(const Condition& condition)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point last = Clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (Clock::now() > last)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// Whether it has ended, its parent's waiting for it aside.
bool has_ended(pid_t process);

// The processes whose parent it is.
std::vector<pid_t> children_of(pid_t process);

#endif
