#include "rules.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include <fnmatch.h>

namespace faultfs
{

namespace
{

struct OperationName {
    std::string_view name;
    std::uint32_t operations;
};

constexpr std::array operation_names = {
    OperationName{"any", UINT32_MAX},
    OperationName{"modify",
                  op_create | op_link | op_mkdir | op_open_write | op_rmdir | op_unlink | op_write},
    OperationName{"access", op_access},
    OperationName{"create", op_create},
    OperationName{"link", op_link},
    OperationName{"lookup", op_lookup},
    OperationName{"mkdir", op_mkdir},
    OperationName{"open", op_open},
    OperationName{"open_write", op_open_write},
    OperationName{"read", op_read},
    OperationName{"readdir", op_readdir},
    OperationName{"rmdir", op_rmdir},
    OperationName{"unlink", op_unlink},
    OperationName{"write", op_write},
};

[[noreturn]] void reject(const std::string& what, const std::string& text)
{
    throw std::invalid_argument(what + ": " + text);
}

std::uint32_t operations_named(const std::string& list)
{
    std::uint32_t all = 0;
    std::istringstream names(list);
    for (std::string name; std::getline(names, name, ',');) {
        const std::uint32_t before = all;
        for (const OperationName& known : operation_names)
            all |= known.name == name ? known.operations : 0;
        if (all == before)
            reject("no such operation, or twice", name);
    }
    return all;
}

int error_named(const std::string& name)
{
    for (int error = 1; error <= EHWPOISON; ++error) {
        const char* const known = ::strerrorname_np(error);
        if (known != nullptr && name == known)
            return error;
    }
    reject("no such error", name);
}

template <typename Number>
bool read_limit(const std::string& word, std::string_view name, Number& value)
{
    if (word.compare(0, name.size(), name) != 0)
        return false;
    const char* const end = word.data() + word.size();
    const auto parsed = std::from_chars(word.data() + name.size(), end, value);
    if (parsed.ec != std::errc{} || parsed.ptr != end)
        reject("not a number", word);
    return true;
}

bool concerns(const Rule& rule, Operation operation, const char* path)
{
    return (rule.operations & operation) != 0 && ::fnmatch(rule.pattern.data(), path, 0) == 0;
}

} // namespace

const Rule& Rules::add(const std::string& text)
{
    Rule& rule = rules_.at(count_);
    std::istringstream words(text);
    std::string operations;
    std::string word;
    words >> operations >> word;
    rule.operations = operations_named(operations);
    rule.error = error_named(word);
    while (words >> word &&
           (read_limit(word, "times=", rule.times) || read_limit(word, "from=", rule.from))) {
    }
    std::string more;
    if (!words || words >> more || word.size() >= rule.pattern.size())
        reject("not one pattern", text);
    word.copy(rule.pattern.data(), word.size());
    ++count_;
    return rule;
}

int Rules::judge(Operation operation, const char* path)
{
    std::size_t whole = SIZE_MAX;
    return judge(operation, path, INT64_MAX, whole);
}

int Rules::judge(Operation operation, const char* path, off_t offset, std::size_t& size)
{
    for (std::size_t i = 0; i < count_; ++i) {
        Rule& rule = rules_[i];
        if (!concerns(rule, operation, path))
            continue;
        if (offset < rule.from) {
            size = std::min(size, static_cast<std::size_t>(rule.from - offset));
            continue;
        }
        ++rule.seen;
        if (rule.fired < rule.times) {
            ++rule.fired;
            return rule.error;
        }
    }
    return 0;
}

} // namespace faultfs
