// Takes away what killed processes left behind.
#ifndef IXFSCTL_CLEANER_H
#define IXFSCTL_CLEANER_H

#include "mount_table.h"
#include "processes.h"
#include "product.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// Of helpers, mounts and mount directories it concerns those of one server, or of all; of locks
// none, or all. Before each step it says it, and looks again whether it is still due.
class Cleaner
{
public:
    enum class Mode { do_it, only_say };

    // server  empty for all
    // say     prints a line
    Cleaner(std::string server, Mode mode, std::function<void(const std::string&)> say)
        : server_(std::move(server)), mode_(mode), say_(std::move(say))
    {
    }

    // Ends the helpers that nobody waits for, takes off the mounts, removes the mount directories
    // that are empty then, and the locks that nobody has open: in this order, since a helper could
    // still mount.
    void run();

    int steps() const { return steps_; } // that were due
    int left() const { return left_; }   // what had to stay, or failed

private:
    void end_helpers();
    std::vector<Process> helpers_to_end() const;
    void take_off_mounts();
    bool take_off(const Mount& mount, const std::vector<Mount>& table);
    void remove_directories(const std::vector<std::string>& unmounted);
    void remove_locks();

    std::optional<std::string> obstacle_at(const std::string& path) const;
    bool is_concerned(const std::string& path) const;
    bool begin_step(const std::string& what);
    void leave(const std::string& what, const std::string& reason);

    const std::string base_ = real_path(mount_base);
    std::string server_;
    Mode mode_;
    std::function<void(const std::string&)> say_;
    int steps_ = 0;
    int left_ = 0;
};

#endif
