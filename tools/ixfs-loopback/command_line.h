// The helper's two command lines, as libixfs writes them.
#ifndef IXFS_LOOPBACK_COMMAND_LINE_H
#define IXFS_LOOPBACK_COMMAND_LINE_H

#include <optional>
#include <string>
#include <vector>

enum class Command { mount, unmount };

struct Call {
    Command command = Command::mount;
    std::string server;
    std::string credential;
    std::string directory; // to mount on, or to unmount
};

// A word of a command line, behind the command.
struct Word {
    std::string option; // empty for the directory, which has none
    std::string value;  // what its value is called; empty for an option without one
    std::string Call::*target = nullptr; // what takes the value, if anything does
    bool is_number = false;
    bool may_miss = false;
};

struct Syntax {
    std::string name; // as it is written
    Command command;
    std::vector<Word> words; // in their order
};

// The completion is made from it, too.
const std::vector<Syntax>& syntaxes();

// Returns the call that `arguments` (without the program's name) ask for, or nothing where they are
// not exactly what libixfs writes: the order of options is part of the contract.
std::optional<Call> parse_call(const std::vector<std::string>& arguments);

#endif
