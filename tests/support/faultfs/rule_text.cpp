// The language that rules are written in.
#include "rules.h"

#include <array>
#include <charconv>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace faultfs
{

namespace
{

struct OperationName {
    std::string_view name;
    std::uint32_t operations;
};

constexpr std::uint32_t modifying = mask(Operation::create) | mask(Operation::link) |
                                    mask(Operation::mkdir) | mask(Operation::open_write) |
                                    mask(Operation::rename) | mask(Operation::rmdir) |
                                    mask(Operation::setattr) | mask(Operation::symlink) |
                                    mask(Operation::unlink) | mask(Operation::write);

constexpr std::array operation_names = {
    OperationName{"any", UINT32_MAX},
    OperationName{"modify", modifying},
    OperationName{"access", mask(Operation::access)},
    OperationName{"create", mask(Operation::create)},
    OperationName{"flush", mask(Operation::flush)},
    OperationName{"getattr", mask(Operation::getattr)},
    OperationName{"link", mask(Operation::link)},
    OperationName{"lookup", mask(Operation::lookup)},
    OperationName{"mkdir", mask(Operation::mkdir)},
    OperationName{"open", mask(Operation::open)},
    OperationName{"open_write", mask(Operation::open_write)},
    OperationName{"opendir", mask(Operation::opendir)},
    OperationName{"read", mask(Operation::read)},
    OperationName{"readdir", mask(Operation::readdir)},
    OperationName{"readlink", mask(Operation::readlink)},
    OperationName{"rename", mask(Operation::rename)},
    OperationName{"rmdir", mask(Operation::rmdir)},
    OperationName{"setattr", mask(Operation::setattr)},
    OperationName{"symlink", mask(Operation::symlink)},
    OperationName{"unlink", mask(Operation::unlink)},
    OperationName{"write", mask(Operation::write)},
};

constexpr std::uint32_t with_offset = mask(Operation::read) | mask(Operation::write);

[[noreturn]] void reject(const std::string& what, const std::string& text)
{
    throw std::invalid_argument(what + ": " + text);
}

std::uint32_t operation(const std::string& name)
{
    for (const OperationName& known : operation_names)
        if (known.name == name)
            return known.operations;
    reject("no such operation", name);
}

std::uint32_t operations(const std::string& list)
{
    std::uint32_t all = 0;
    std::istringstream names(list);
    for (std::string name; std::getline(names, name, ',');)
        all |= operation(name);
    return all;
}

int error_number(const std::string& name)
{
    for (int error = 1; error <= EHWPOISON; ++error) {
        const char* const known = ::strerrorname_np(error);
        if (known != nullptr && name == known)
            return error;
    }
    reject("no such effect", name);
}

void set_effect(Rule& rule, const std::string& word)
{
    if (word == "hang") {
        rule.effect = Effect::hang;
    } else if (word != "pass") {
        rule.effect = Effect::fail;
        rule.error = error_number(word);
    }
}

void set_limit(Rule& rule, const std::string& word)
{
    const std::size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    std::uint64_t* const limit = name == "after"   ? &rule.after
                                 : name == "times" ? &rule.times
                                 : name == "from"  ? &rule.from
                                                   : nullptr;
    if (limit == nullptr || equals == std::string::npos)
        reject("neither a limit nor a pattern", word);
    const char* const end = word.data() + word.size();
    const auto parsed = std::from_chars(word.data() + equals + 1, end, *limit);
    if (parsed.ec != std::errc{} || parsed.ptr != end)
        reject("not a number", word);
}

bool begins_pattern(std::istream& words)
{
    const int next = (words >> std::ws).peek();
    return next == '/' || next == '*';
}

} // namespace

Rule parse_rule(const std::string& text)
{
    Rule rule;
    std::istringstream words(text);
    std::string operations_word;
    std::string effect_word;
    words >> operations_word >> effect_word;
    rule.operations = operations(operations_word);
    set_effect(rule, effect_word);
    for (std::string word; !begins_pattern(words) && words >> word;)
        set_limit(rule, word);
    if (!std::getline(words, rule.pattern))
        reject("no pattern", text);
    if (rule.from != 0 && (rule.operations & ~with_offset) != 0)
        reject("from= is for read and write only", text);
    return rule;
}

} // namespace faultfs
