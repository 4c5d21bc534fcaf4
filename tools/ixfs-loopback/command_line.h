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

// Returns the call that `arguments` (without the program's name) ask for, or nothing where they are
// not exactly what libixfs writes: the order of options is part of the contract.
std::optional<Call> parse_call(const std::vector<std::string>& arguments);

#endif
