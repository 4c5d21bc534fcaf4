#include "phase.h"

#include "begins_with.h"
#include "log_text.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>

namespace
{

using namespace std::chrono_literals;

// The library looks for the configuration three times, and pauses in between.
constexpr auto pause_for_configuration = 10s;
constexpr int most_pauses = 2;

constexpr std::string_view response = "INF - response - ";

// Lines that end in the disk that they are about, as the caller named it.
constexpr std::string_view disk_complaints[] = {
    "ERR - Disk lies in the view folder: ",
    "ERR - Another disk's descriptor has the name of the data file of: ",
    "ERR - Descriptor has the name of another disk's data link in the view: ",
    "ERR - Data link in the view is another file than the data of: ",
};

std::string without_newline(std::string text)
{
    if (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

// Credentials stand in no response, but a helper may complain of its command line.
std::string helper_line(std::string_view line)
{
    return shown_message(line);
}

// The disk that a line names. The library cuts long lines.
std::string named_disk(const std::vector<std::string>& disks, std::string_view name)
{
    const auto found = std::find_if(disks.begin(), disks.end(), [&](const std::string& disk) {
        return disk == name || (name.size() > 1024 && begins_with(disk, name));
    });
    return found != disks.end() ? *found : std::string(name);
}

} // namespace

const char* step_name(Step step)
{
    switch (step) {
    case Step::starting:
        return "starting";
    case Step::waiting_for_lock:
        return "waiting for the host's lock";
    case Step::mounting:
        return "mounting";
    case Step::reading_configuration:
        return "reading the configuration";
    case Step::building_view:
        return "building the view";
    case Step::removing_view:
        return "removing the view";
    case Step::unmounting:
        return "unmounting";
    }
    return "";
}

void Phase::enter(Step step, Time time)
{
    if (step == step_)
        return;
    step_ = step;
    since_ = time;
    end_of_pauses_.reset();
    if (step != Step::unmounting)
        step_before_unmount_ = step;
}

void Phase::take(const LogLine& line)
{
    const std::string message = without_newline(line.message);
    if (begins_with(message, "INF - running command - ") || begins_with(message, response))
        take_helper_line(message);
    if (line.tag == "_ixfs_mount_validate_thread()")
        return; // may come at any time
    if (line.tag == "ixfs_unmount()" || line.tag == "_ixfs_umount()") {
        enter(Step::unmounting, line.time);
        waits_to_unmount_ = message == "INF - waiting for mount mutex";
    } else if (line.tag == "ixfs_mount()") {
        take_mount_line(message, line.time);
    } else if (line.tag == "readXml") {
        take_configuration_line(message, line.time);
    } else if (step_ == Step::building_view) {
        take_view_line(line);
    }
}

void Phase::take_mount_line(const std::string& message, Time time)
{
    if (message == "INF - waiting for mount mutex...")
        enter(Step::waiting_for_lock, time);
    else if (begins_with(message, "INF - mount point - "))
        enter(request_.remove_view ? Step::removing_view : Step::reading_configuration, time);
    else if (step_ == Step::starting || message != "ERR - unable to obtain mount mutex")
        enter(Step::mounting, time);
}

void Phase::take_configuration_line(const std::string& message, Time time)
{
    if (begins_with(message, "INF - Size after striping padding: "))
        return enter(Step::building_view, time);
    enter(Step::reading_configuration, time);
    end_of_pauses_.reset();
    if (message == "INF - waiting for VM Config file to be accessible")
        end_of_pauses_ = time + (most_pauses - pauses_++) * pause_for_configuration;
}

void Phase::take_view_line(const LogLine& line)
{
    const std::string message = without_newline(line.message);
    if (line.tag == "copyOrLinkPath") {
        // Of a disk's two files the second is the link; the first is always written anew.
        const bool done = begins_with(message, "INF - Created link file: ") ||
                          begins_with(message, "INF - File already exists, reusing: ");
        disks_done_ += done ? 1 : 0;
        disk_begun_ = !done;
    } else if (line.tag == "create_view_vmir") {
        if (begins_with(message, "ERR - An internal error has occurred: "))
            failed_disk_ = disks_done_ < disks() ? request_.disks[disks_done_] : "";
        for (const std::string_view complaint : disk_complaints) {
            if (begins_with(message, complaint))
                failed_disk_ = named_disk(request_.disks, message.substr(complaint.size()));
        }
    }
}

std::string Phase::current_disk() const
{
    return disk_begun_ && disks_done_ < disks() ? request_.disks[disks_done_] : "";
}

void Phase::take_helper_line(const std::string& message)
{
    constexpr std::string_view key = "EXIT_STATUS=";
    if (!begins_with(message, response)) { // a new run
        helper_exit_status_.reset();
        helper_lines_.clear();
        return;
    }
    const std::string line = message.substr(response.size());
    if (begins_with(line, key))
        helper_exit_status_ =
            static_cast<int>(std::strtol(line.c_str() + line.rfind('=') + 1, nullptr, 10));
    keep_helper_line(helper_line(line));
}

void Phase::take_helper_error(const std::string& line)
{
    keep_helper_line(helper_line(line));
}

void Phase::keep_helper_line(const std::string& line)
{
    if (line.empty())
        return;
    helper_lines_.push_back(line);
    if (helper_lines_.size() > most_helper_lines)
        helper_lines_.pop_front();
}
