// Invariants. One that does not hold ends the program, which makes a finding of the input.
#ifndef IXFS_FUZZ_CHECK_H
#define IXFS_FUZZ_CHECK_H

#include <optional>
#include <string>
#include <type_traits>
#include <vector>

// Values as a failed check shows them; text quoted, other than printable ASCII as \xHH.
std::string shown(const std::string& text);

template <typename Number>
std::enable_if_t<std::is_arithmetic_v<Number> || std::is_enum_v<Number>, std::string>
shown(Number value)
{
    return std::to_string(static_cast<long>(value));
}

template <typename Value>
std::string shown(const std::optional<Value>& value)
{
    return value ? shown(*value) : "none";
}

template <typename Value>
std::string shown(const std::vector<Value>& values)
{
    std::string text = std::to_string(values.size()) + " items";
    for (const Value& value : values)
        text += "\n    " + shown(value);
    return text;
}

// `what` says what is looked at.
[[noreturn]] void fail(const std::string& what);

inline void require(bool holds, const std::string& what)
{
    if (!holds)
        fail(what);
}

template <typename Actual, typename Expected>
void require_equal(const Actual& actual, const Expected& expected, const std::string& what)
{
    if (!(actual == expected))
        fail(what + "\n  is       " + shown(actual) + "\n  expected " + shown(expected));
}

#endif
