// The rules: which calls on the file system fail, hang or are counted.
#ifndef FAULTFS_RULES_H
#define FAULTFS_RULES_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace faultfs
{

// What the kernel asks a file system for. The mask of a set of operations has the bit of each.
enum class Operation : std::uint32_t {
    access,
    create,
    flush,
    getattr,
    link,
    lookup,
    mkdir,
    open, // for reading
    open_write,
    opendir,
    read,
    readdir,
    readlink,
    rename,
    rmdir,
    setattr,
    symlink,
    unlink,
    write
};

constexpr std::uint32_t mask(Operation operation)
{
    return std::uint32_t{1} << static_cast<std::uint32_t>(operation);
}

struct Call {
    Operation operation;
    std::string path; // from the mount point, which is "/"; the new one of a link or rename

    // The bytes to read or write; all, where the call is about the file as a whole.
    std::uint64_t begin = 0;
    std::uint64_t end = UINT64_MAX;
};

enum class Effect { pass, fail, hang };

struct Rule {
    std::uint32_t operations = 0;
    std::string pattern; // as for fnmatch(3), with "*" matching slashes too
    Effect effect = Effect::pass;
    int error = 0;
    std::uint64_t after = 0;          // calls let through before the first that it fires for
    std::uint64_t times = UINT64_MAX; // calls that it fires for
    std::uint64_t from = 0;           // offset of the first byte that it concerns

    std::uint64_t seen = 0;  // calls that it concerned
    std::uint64_t fired = 0; // those among them that it fired for
    bool lifted = false;

    bool concerns(const Call& call) const;
    bool armed() const { return seen >= after && fired < times; }
};

// Reads "OPERATIONS EFFECT [after=N] [times=N] [from=N] PATTERN". Throws std::invalid_argument.
Rule parse_rule(const std::string& text);

// 1 for the first rule, and so on.
using RuleId = std::size_t;

struct Verdict {
    Effect effect = Effect::pass;
    int error = 0;
    RuleId rule = 0;
};

class Rules
{
public:
    RuleId add(Rule rule);
    RuleId size() const { return rules_.size(); }
    void lift(RuleId id) { rules_.at(id - 1).lifted = true; }
    const Rule& at(RuleId id) const { return rules_.at(id - 1); }

    // Puts a call to the rules that come after rule `last`, in their order, up to the first that
    // fires and does not let it pass. A call that begins before the bytes concerned and reaches
    // into them is cut there, so that the next one fails, as on a disk.
    Verdict judge(Call& call, RuleId last);

    // Whether a lookup of the path would find nothing at present. Counts nothing.
    bool hide(const std::string& path) const;

private:
    std::vector<Rule> rules_;
};

} // namespace faultfs

#endif
