// What completion needs to know of a command line.
#ifndef IXFS_COMPLETION_COMMAND_H
#define IXFS_COMPLETION_COMMAND_H

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace CLI
{
class App;
}

namespace completion
{

enum class Kind { text, choice, file, folder, host };

struct Value {
    std::string type; // as --help names it
    Kind kind = Kind::text;
    std::vector<std::string> choices; // of Kind::choice
};

struct Option {
    std::vector<std::string> names;
    std::string description;
    std::optional<Value> value; // none for a flag
    bool repeats = false;
    std::vector<std::string> not_with; // other options' names
    std::string after;                 // the option that must stand before it, or ""
};

// An argument that is no option. Of several only the first is completed.
struct Argument {
    Value value;
    std::string after;
};

struct Command {
    std::string name;
    std::string description;
    std::vector<Option> options;
    std::optional<Argument> argument;
    std::vector<Command> subcommands; // which have none themselves
};

// Words that are values of a type, by its name.
using KnownValues = std::map<std::string, std::vector<std::string>>;

// What a value is, by the name of its type: "FILE" is a file, "DIR" a folder, "NAME" the name of a
// media server. "KIND:{full,incr}", as CLI11 names an option with a check for membership, is one of
// these two words. Of "STATUS|-" each is possible: a known value of STATUS, and "-" as it stands. All
// else is text, of which nothing is known.
Value value_of_type(const std::string& type, const KnownValues& known = {});

// The options that rule it out: those that are not taken together with it, and itself unless it
// repeats.
std::vector<std::string> excluded_by(const Option& option);

// Reads the command line that `add_options` makes.
Command read_command(const std::function<void(CLI::App&)>& add_options,
                     const KnownValues& known = {});

} // namespace completion

#endif
