// What C strings and fixed buffers make of bytes.
#ifndef IXFS_FUZZ_REFERENCE_TEXT_H
#define IXFS_FUZZ_REFERENCE_TEXT_H

#include <string>
#include <vector>

namespace reference
{

constexpr std::size_t longest_text = 1023; // what a buffer of 1,024 bytes holds

inline std::string up_to_nul(const std::string& bytes)
{
    return bytes.substr(0, bytes.find('\0'));
}

// What reading lines into a buffer yields: each line with its newline, a longer one in pieces, and
// of each of these what stands before its first NUL.
inline std::vector<std::string> read_lines(const std::string& bytes)
{
    std::vector<std::string> lines;
    std::string line;
    for (const char byte : bytes) {
        line += byte;
        if (byte == '\n' || line.size() == longest_text) {
            lines.push_back(up_to_nul(line));
            line.clear();
        }
    }
    if (!line.empty())
        lines.push_back(up_to_nul(line));
    return lines;
}

inline bool starts_with(const std::string& text, const std::string& start)
{
    return text.substr(0, start.size()) == start;
}

inline bool contains(const std::string& text, const std::string& part)
{
    return text.find(part) != std::string::npos;
}

} // namespace reference

#endif
