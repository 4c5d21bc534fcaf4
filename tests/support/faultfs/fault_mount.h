// A mount of ixfs-faultfs for the tests.
//
//     FaultMount mount(source, mount_point);
//     const Fault slow = mount.add("access ETIME times=99 /backups");
//     ...
//     EXPECT_EQ(slow.count().fired, 99);
//
// The README tells what can be written in a rule. Everything here throws std::runtime_error when
// the file system refuses a command or has ended, and when it does not answer within a minute.
#ifndef FAULTFS_FAULT_MOUNT_H
#define FAULTFS_FAULT_MOUNT_H

#include "unique_fd.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>

#include <sys/types.h>

namespace faultfs
{

class FaultMount;

struct Count {
    std::uint64_t seen;  // calls that the rule concerned
    std::uint64_t fired; // those that it failed, held or, for "pass", counted
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

// A rule in force; it stays so until it is lifted, whatever becomes of this handle to it. Valid
// while its mount lives.
class Fault
{
public:
    Count count() const;
    void lift() const;

    // Waits until the rule has fired that often, and so, for "hang", until a call hangs.
    void wait_until_fired(std::uint64_t times = 1) const;

private:
    friend class FaultMount;
    Fault(FaultMount& mount, std::string id) : mount_(&mount), id_(std::move(id)) {}

    FaultMount* mount_;
    std::string id_;
};

// Used by one thread at a time; other threads and processes may use the mounted files meanwhile.
class FaultMount
{
public:
    // Why this process can mount none, for people to read; empty where it can.
    static std::string obstacle();

    // Mounts; every call made from now on is seen by the rules.
    FaultMount(const std::filesystem::path& source, std::filesystem::path mount_point);

    FaultMount(const FaultMount&) = delete;
    FaultMount& operator=(const FaultMount&) = delete;

    // Ends it as end() does.
    ~FaultMount();

    [[nodiscard]] Fault add(const std::string& rule);

    const std::filesystem::path& path() const { return mount_point_; }

    // Unmounts even when files are open or calls hang, which fail with ENOTCONN, and returns the
    // wait status of the file system's process, also when called again. Where the mount has been
    // bound elsewhere, a dead file system stays there.
    int end() noexcept;

private:
    friend class Fault;

    std::string command(const std::string& line);
    std::string read_answer();

    std::filesystem::path mount_point_;
    UniqueFd control_;
    pid_t process_ = -1; // until it has ended
    int wait_status_ = -1;
};

} // namespace faultfs

#endif
