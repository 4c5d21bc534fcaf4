// The rules of what fails. They lie in memory that a test and its file system share: the test adds
// to them, the file system counts.
#ifndef FAULTFS_RULES_H
#define FAULTFS_RULES_H

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include <sys/types.h>

namespace faultfs
{

// What a file system is asked for. A set of operations has the bit of each.
enum Operation : std::uint32_t {
    op_access = 1U << 0U,
    op_create = 1U << 1U,
    op_link = 1U << 2U,
    op_lookup = 1U << 3U, // of a name, and of attributes
    op_mkdir = 1U << 4U,
    op_open = 1U << 5U, // for reading
    op_open_write = 1U << 6U,
    op_read = 1U << 7U,
    op_readdir = 1U << 8U,
    op_rmdir = 1U << 9U,
    op_unlink = 1U << 10U,
    op_write = 1U << 11U
};

struct Rule {
    std::uint32_t operations = 0;
    int error = 0;
    std::uint64_t times = UINT64_MAX; // calls that it fails
    off_t from = 0;                   // offset of the first byte that it concerns
    std::array<char, 128> pattern{};  // as for fnmatch(3), with "*" matching slashes too

    std::atomic<std::uint64_t> seen{0};  // calls that it concerned
    std::atomic<std::uint64_t> fired{0}; // those among them that it failed
};

class Rules
{
public:
    // Adds the rule that "OPERATIONS ERROR [times=N] [from=N] PATTERN" tells. Throws
    // std::invalid_argument.
    const Rule& add(const std::string& text);

    // Puts a call to the rules in turn. Returns the error of the first that fails it, else 0.
    int judge(Operation operation, const char* path);

    // The same for a call on the bytes from `offset` on. One that begins before the bytes that a
    // rule concerns has its size cut there, so that the next one fails, as on a disk.
    int judge(Operation operation, const char* path, off_t offset, std::size_t& size);

private:
    std::array<Rule, 16> rules_;
    std::atomic<std::size_t> count_{0};
};

} // namespace faultfs

#endif
