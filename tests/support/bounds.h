// Texts around the lengths of the library's fixed buffers: what just fits, what is one byte longer,
// and what is longer than several of them.
#ifndef IXFS_TESTS_BOUNDS_H
#define IXFS_TESTS_BOUNDS_H

#include <gtest/gtest.h>

#include <string>

namespace bounds
{

inline constexpr std::size_t longest_text = 1023;    // in a text buffer
inline constexpr std::size_t longest_message = 2047; // of one log line

inline std::string length_name(const testing::TestParamInfo<std::size_t>& info)
{
    return std::to_string(info.param) + "Bytes";
}

// Letters, in an order that shows where a text was cut.
inline std::string text(std::size_t length)
{
    std::string letters;
    while (letters.size() < length)
        letters += static_cast<char>('a' + letters.size() % 25);
    return letters;
}

// A path of that length which begins with `start`, in segments that every file system takes.
inline std::string path(std::size_t length, std::string start)
{
    constexpr std::size_t segment = 100;
    const std::string letters = text(length);
    const std::size_t front = start.size();
    while (start.size() < length) {
        const bool begins_segment = (start.size() - front) % segment == 0;
        const bool is_last = start.size() + 1 == length;
        start += begins_segment && !is_last ? '/' : letters[start.size()];
    }
    return start;
}

inline std::string as_text(const std::string& whole)
{
    return whole.substr(0, longest_text);
}

inline std::string as_message(const std::string& whole)
{
    return whole.substr(0, longest_message);
}

} // namespace bounds

#endif
