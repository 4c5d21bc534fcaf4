// The commands that change and question the rules, one a line, each answered with a line.
#ifndef FAULTFS_CONTROL_H
#define FAULTFS_CONTROL_H

#include "rules.h"

#include <cstdint>
#include <istream>
#include <optional>
#include <string>

namespace faultfs
{

class Control
{
public:
    Control(Rules& rules, int input, int output) : rules_(rules), input_(input), output_(output) {}

    bool at_end() const { return at_end_; }

    // Takes in what the input holds; waits when it holds nothing.
    void receive();

    // Runs the next command, or answers the "wait" in progress. Returns false when neither can be
    // done yet.
    bool step();

    void answer(const std::string& line);

private:
    struct Wait {
        RuleId rule;
        std::uint64_t times;
    };

    std::string run(const std::string& line);
    RuleId rule_named_in(std::istream& words) const;

    Rules& rules_;
    int input_;
    int output_;
    bool at_end_ = false;
    std::string received_;
    std::optional<Wait> wait_;
};

} // namespace faultfs

#endif
