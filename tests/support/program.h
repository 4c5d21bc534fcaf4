// Runs a program to its end and keeps what it printed.
#ifndef IXFS_TESTS_PROGRAM_H
#define IXFS_TESTS_PROGRAM_H

#include <iosfwd>
#include <string>
#include <vector>

struct ProgramResult {
    int exit_status; // -1 when a signal ended it
    std::string output;
    std::string errors;
};

// Where a program's standard streams lead, other than to the result.
struct Streams {
    std::string input; // what the program reads
    int output = -1;   // descriptors to be used instead
    int errors = -1;
};

// `command` is the program's path and its arguments. Throws when the program cannot be started.
ProgramResult run_program(const std::vector<std::string>& command, const Streams& streams = {});

// The lines of an output, or of any other text.
std::vector<std::string> lines_of(std::istream&& text);

// The writing end of a pipe that nobody reads from.
class BrokenPipe
{
public:
    BrokenPipe();
    ~BrokenPipe();
    BrokenPipe(const BrokenPipe&) = delete;
    BrokenPipe& operator=(const BrokenPipe&) = delete;

    int descriptor() const { return descriptor_; }

private:
    int descriptor_ = -1;
};

#endif
