#include "control.h"

#include <array>
#include <sstream>
#include <stdexcept>

#include <unistd.h>

namespace faultfs
{

void Control::receive()
{
    std::array<char, 4096> buffer;
    const ssize_t got = ::read(input_, buffer.data(), buffer.size());
    if (got > 0)
        received_.append(buffer.data(), static_cast<std::size_t>(got));
    else
        at_end_ = true;
}

void Control::answer(const std::string& line)
{
    const std::string text = line + '\n';
    if (::write(output_, text.data(), text.size()) != static_cast<ssize_t>(text.size()))
        at_end_ = true; // nobody listens
}

bool Control::step()
{
    if (wait_) {
        if (rules_.at(wait_->rule).fired < wait_->times)
            return false;
        wait_.reset();
        answer("ok");
        return true;
    }
    const std::size_t end = received_.find('\n');
    if (end == std::string::npos)
        return false;
    const std::string line = received_.substr(0, end);
    received_.erase(0, end + 1);
    try {
        const std::string result = run(line);
        if (!wait_)
            answer("ok" + result);
    } catch (const std::invalid_argument& error) {
        answer(std::string("error ") + error.what());
    }
    return true;
}

RuleId Control::rule_named_in(std::istream& words) const
{
    RuleId id = 0;
    words >> id;
    if (id == 0 || id > rules_.size())
        throw std::invalid_argument("no such rule");
    return id;
}

std::string Control::run(const std::string& line)
{
    std::istringstream words(line);
    std::string command;
    words >> command;
    if (command == "add") {
        std::string rule;
        std::getline(words, rule);
        return ' ' + std::to_string(rules_.add(parse_rule(rule)));
    }
    if (command == "lift") {
        rules_.lift(rule_named_in(words));
        return "";
    }
    if (command == "count") {
        const Rule& rule = rules_.at(rule_named_in(words));
        return ' ' + std::to_string(rule.seen) + ' ' + std::to_string(rule.fired);
    }
    if (command == "wait") {
        const RuleId id = rule_named_in(words);
        std::uint64_t times = 1;
        words >> times;
        wait_ = {id, times};
        return "";
    }
    throw std::invalid_argument("no such command: " + line);
}

} // namespace faultfs
