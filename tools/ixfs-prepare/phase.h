// How far a preparation is, and what failed in it, as its log lines tell.
#ifndef IXFS_PREPARE_PHASE_H
#define IXFS_PREPARE_PHASE_H

#include "records.h"
#include "request.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <vector>

enum class Step {
    starting,
    waiting_for_lock,
    mounting,
    reading_configuration,
    building_view,
    removing_view,
    unmounting
};

// As people read it, such as "mounting".
const char* step_name(Step step);

// Pure: it knows the time by the lines alone.
class Phase
{
public:
    using Time = std::chrono::system_clock::time_point;

    static constexpr std::size_t most_helper_lines = 10;

    explicit Phase(const Request& request) : request_(request) {}

    void take(const LogLine& line);

    // A line that the helper wrote to standard error.
    void take_helper_error(const std::string& line);

    Step step() const { return step_; }

    // The step before the unmount that always follows.
    Step step_before_unmount() const { return step_before_unmount_; }

    Time since() const { return since_; } // when the step began

    // Whether nothing was begun yet that would have to be undone: it waits for its turn to mount.
    bool waits_to_mount() const { return step_ == Step::waiting_for_lock; }
    bool waits_to_unmount() const { return waits_to_unmount_; }

    // Until when it pauses, at most, in the hope that the configuration appears.
    std::optional<Time> end_of_pauses() const { return end_of_pauses_; }

    std::size_t disks() const { return request_.disks.size(); }
    std::size_t disks_done() const { return disks_done_; }

    // The disk that could not be prepared, as the caller named it, or "".
    const std::string& failed_disk() const { return failed_disk_; }

    // The disk that it was at, if any: where it ended without saying why.
    std::string current_disk() const;

    // Of the helper's last run: the exit status that it reported, and its last lines, masked.
    std::optional<int> helper_exit_status() const { return helper_exit_status_; }
    std::vector<std::string> helper_lines() const
    {
        return {helper_lines_.begin(), helper_lines_.end()};
    }

private:
    void enter(Step step, Time time);
    void take_mount_line(const std::string& message, Time time);
    void take_configuration_line(const std::string& message, Time time);
    void take_view_line(const LogLine& line);
    void take_helper_line(const std::string& message);
    void keep_helper_line(const std::string& line);

    const Request request_;
    Step step_ = Step::starting;
    Step step_before_unmount_ = Step::starting;
    Time since_{};
    bool waits_to_unmount_ = false;
    std::optional<Time> end_of_pauses_;
    int pauses_ = 0;
    bool disk_begun_ = false;
    std::size_t disks_done_ = 0;
    std::string failed_disk_;
    std::optional<int> helper_exit_status_;
    std::deque<std::string> helper_lines_;
};

#endif
