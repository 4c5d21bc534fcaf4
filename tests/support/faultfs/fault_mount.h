// A file system for the tests that shows a folder and fails where it is told to.
//
//     FaultMount mount(source, mount_point); // mounted when the constructor returns
//     const Fault slow = mount.add("access ETIME times=99 /backups");
//     ...
//     EXPECT_EQ(slow.count().fired, 99);
//
// The README tells what can be written in a rule.
#ifndef FAULTFS_FAULT_MOUNT_H
#define FAULTFS_FAULT_MOUNT_H

#include "rules.h"

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include <sys/types.h>

namespace faultfs
{

struct Count {
    std::uint64_t seen;  // calls that the rule concerned
    std::uint64_t fired; // those among them that it failed
};

inline bool operator==(const Count& left, const Count& right)
{
    return left.seen == right.seen && left.fired == right.fired;
}

// For GoogleTest.
inline void PrintTo(const Count& count, std::ostream* stream)
{
    *stream << "{seen " << count.seen << ", fired " << count.fired << '}';
}

// A rule in force, which it stays. Valid while its mount lives.
class Fault
{
public:
    explicit Fault(const Rule& rule) : rule_(&rule) {}
    Count count() const { return {rule_->seen, rule_->fired}; }

private:
    const Rule* rule_;
};

class FaultMount
{
public:
    // Why this process can mount none, for people to read; empty where it can.
    static std::string obstacle();

    // How files are numbered: as in the source, or each name anew, so that hard links have nothing
    // in common.
    enum class Numbers { of_source, by_name };

    // Mounts, or throws std::runtime_error.
    FaultMount(const std::string& source, const std::string& mount_point,
               Numbers numbers = Numbers::of_source);
    FaultMount(const FaultMount&) = delete;
    FaultMount& operator=(const FaultMount&) = delete;
    ~FaultMount();

    // Adds a rule, for all calls from now on. Throws std::invalid_argument for one without sense.
    [[nodiscard]] Fault add(const std::string& rule) { return Fault(rules_->add(rule)); }

    // Unmounts even when files are open, and returns the wait status of the file system's process,
    // also when called again.
    int end();

private:
    struct Unmapper {
        void operator()(Rules* rules) const;
    };

    const std::string mount_point_;
    std::unique_ptr<Rules, Unmapper> rules_;
    pid_t process_ = -1; // until it has ended
    int wait_status_ = -1;
};

} // namespace faultfs

#endif
