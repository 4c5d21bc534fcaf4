#include "command_line.h"

namespace
{

// Takes arguments off the front of a list and remembers whether all were as expected.
class ArgumentReader
{
public:
    explicit ArgumentReader(const std::vector<std::string>& arguments) : arguments_(arguments) {}

    bool take(const std::string& literal)
    {
        if (next_ == arguments_.size() || arguments_[next_] != literal)
            return false;
        ++next_;
        return true;
    }

    void expect(const std::string& literal) { as_expected_ &= take(literal); }

    // An empty one is not expected.
    std::string value()
    {
        std::string value = next_ < arguments_.size() ? arguments_[next_++] : "";
        as_expected_ &= !value.empty();
        return value;
    }

    void expect_number()
    {
        as_expected_ &= value().find_first_not_of("0123456789") == std::string::npos;
    }

    bool finished_as_expected() const { return as_expected_ && next_ == arguments_.size(); }

private:
    const std::vector<std::string>& arguments_;
    std::size_t next_ = 0;
    bool as_expected_ = true;
};

} // namespace

std::optional<Call> parse_call(const std::vector<std::string>& arguments)
{
    ArgumentReader reader(arguments);
    Call call;
    if (!reader.take("mount")) {
        reader.expect("umount");
        reader.expect("-f");
        call.command = Command::unmount;
    }
    reader.expect("-server");
    call.server = reader.value();
    reader.expect("-port");
    reader.expect_number();
    if (call.command == Command::mount && reader.take("-timeout"))
        reader.expect_number();
    reader.expect("-cred");
    call.credential = reader.value();
    call.directory = reader.value();
    if (!reader.finished_as_expected())
        return std::nullopt;
    return call;
}
