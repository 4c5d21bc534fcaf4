// Lengths around the library's fixed buffers, and texts of such lengths.
#ifndef IXFS_TESTS_BOUNDS_H
#define IXFS_TESTS_BOUNDS_H

#include "log_recorder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace bounds
{

inline constexpr std::size_t longest_text = 1023;    // in a text buffer
inline constexpr std::size_t longest_message = 2047; // of one log line
inline constexpr std::size_t longest_path = 4095;    // that the kernel takes

inline const auto lengths =
    testing::Values(1022U, 1023U, 1024U, 1025U, 2047U, 2048U, 4095U, 4096U, 5000U);

inline std::string length_name(const testing::TestParamInfo<unsigned int>& info)
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

// What a log shows of these lines.
inline Lines as_logged(Lines whole)
{
    for (Line& line : whole)
        line.message.resize(std::min(line.message.size(), longest_message));
    return whole;
}

} // namespace bounds

#endif
