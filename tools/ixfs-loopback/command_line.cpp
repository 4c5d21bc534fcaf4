#include "command_line.h"

#include <algorithm>

namespace
{

// Takes arguments off the front of a list and remembers whether all were as expected.
class ArgumentReader
{
public:
    explicit ArgumentReader(const std::vector<std::string>& arguments) : arguments_(arguments) {}

    void read(const Word& word, Call& call)
    {
        if (!word.option.empty() && !take(word.option)) {
            as_expected_ &= word.may_miss;
            return;
        }
        if (word.value.empty())
            return;
        const std::string text = value();
        if (word.is_number)
            as_expected_ &= text.find_first_not_of("0123456789") == std::string::npos;
        if (word.target != nullptr)
            call.*word.target = text;
    }

    bool finished_as_expected() const { return as_expected_ && next_ == arguments_.size(); }

private:
    bool take(const std::string& literal)
    {
        if (next_ == arguments_.size() || arguments_[next_] != literal)
            return false;
        ++next_;
        return true;
    }

    // An empty one is not expected.
    std::string value()
    {
        std::string value = next_ < arguments_.size() ? arguments_[next_++] : "";
        as_expected_ &= !value.empty();
        return value;
    }

    const std::vector<std::string>& arguments_;
    std::size_t next_ = 1; // behind the command
    bool as_expected_ = true;
};

} // namespace

const std::vector<Syntax>& syntaxes()
{
    static const Word server{"-server", "S", &Call::server};
    static const Word port{"-port", "P", nullptr, true};
    static const Word timeout{"-timeout", "N", nullptr, true, true};
    static const Word credential{"-cred", "C", &Call::credential};
    static const Word directory{"", "DIR", &Call::directory};
    static const std::vector<Syntax> all = {
        {"mount", Command::mount, {server, port, timeout, credential, directory}},
        {"umount", Command::unmount, {{"-f", ""}, server, port, credential, directory}}};
    return all;
}

std::optional<Call> parse_call(const std::vector<std::string>& arguments)
{
    const auto syntax =
        std::find_if(syntaxes().begin(), syntaxes().end(), [&](const Syntax& candidate) {
            return !arguments.empty() && arguments[0] == candidate.name;
        });
    if (syntax == syntaxes().end())
        return std::nullopt;
    ArgumentReader reader(arguments);
    Call call;
    call.command = syntax->command;
    for (const Word& word : syntax->words)
        reader.read(word, call);
    if (!reader.finished_as_expected())
        return std::nullopt;
    return call;
}
