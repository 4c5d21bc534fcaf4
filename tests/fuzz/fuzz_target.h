// What every fuzz target starts from.
#ifndef IXFS_FUZZ_TARGET_H
#define IXFS_FUZZ_TARGET_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Defined by each target, called by libFuzzer or by the replay program.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

inline std::string bytes_of(const std::uint8_t* data, std::size_t size)
{
    return {data, data + size};
}

// The parts of `bytes` between `separator`s, at most `most` of them; what is left over is dropped.
// A separator at the very end begins no part.
inline std::vector<std::string> split(const std::string& bytes, const std::string& separator,
                                      std::size_t most)
{
    std::vector<std::string> parts;
    for (std::size_t start = 0; start < bytes.size() && parts.size() < most;) {
        const std::size_t end = bytes.find(separator, start);
        parts.push_back(bytes.substr(start, end == std::string::npos ? end : end - start));
        start = end == std::string::npos ? bytes.size() : end + separator.size();
    }
    return parts;
}

#endif
