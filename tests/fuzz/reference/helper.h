// The conversation with the mount helper: its commands, and what its output means.
#ifndef IXFS_FUZZ_REFERENCE_HELPER_H
#define IXFS_FUZZ_REFERENCE_HELPER_H

#include "text.h"

#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace reference
{

// The non-empty lines of a run's output, without their newlines.
inline std::vector<std::string> response_lines(const std::string& output)
{
    std::vector<std::string> responses;
    for (std::string line : read_lines(output)) {
        if (!line.empty() && line.back() == '\n')
            line.pop_back();
        if (!line.empty())
            responses.push_back(line);
    }
    return responses;
}

inline bool is_exit_status(const std::string& line)
{
    return starts_with(line, "EXIT_STATUS=");
}

inline std::string behind_last_equals_sign(const std::string& line)
{
    return line.substr(line.rfind('=') + 1);
}

inline int exit_status_of(const std::string& line)
{
    return static_cast<int>(std::strtol(behind_last_equals_sign(line).c_str(), nullptr, 10));
}

// Plays the library's part against a helper whose runs are given. Runs that are not given say
// nothing. Time passes by the second between two tries only.
class HelperModel
{
public:
    HelperModel(std::vector<std::string> outputs, int timeout)
        : outputs_(std::move(outputs)), timeout_(timeout)
    {
    }

    // Each returns the status that is to be seen; 0 of mount is a mount that succeeds.
    int mount()
    {
        int exit_status = 0;
        for (int second = 0;; ++second) {
            read_mount_answer(exit_status);
            if (mnt_path && !mount_point.empty()) {
                if (is_alive(mount_point))
                    return 0;
                unmount();
                return helper_failed;
            }
            if (exit_status != busy && exit_status != 0)
                return helper_failed;
            if (exit_status == 0 || second >= timeout_)
                return mount_point.empty() ? nothing_mounted : 0;
        }
    }

    int unmount()
    {
        for (int second = 0;; ++second) {
            const int exit_status = read_unmount_answer();
            if (mnt_path || exit_status == 0)
                return 0;
            if (exit_status != busy)
                return helper_failed;
            if (second >= timeout_)
                return 0;
        }
    }

    std::string mount_point;
    std::optional<std::string> mnt_path;
    std::vector<std::string> responses; // that are read, of all runs so far
    std::vector<std::string> reported;  // those that the job log gets too
    std::size_t runs = 0;

    // What the file system says: everything with an absolute path is there.
    static bool is_alive(const std::string& path) { return path[0] == '/'; }

    static constexpr int nothing_mounted = 11;
    static constexpr int helper_failed = 29;

private:
    static constexpr int busy = 25;

    std::string next_output()
    {
        const std::size_t run = runs++;
        return run < outputs_.size() ? outputs_[run] : "";
    }

    void read_mount_answer(int& exit_status)
    {
        for (const std::string& line : response_lines(next_output())) {
            responses.push_back(line);
            if (is_exit_status(line)) {
                exit_status = exit_status_of(line);
                return;
            }
            const bool knows_mount_point = !mount_point.empty();
            if (!contains(line, "=") || line.back() == '=')
                continue;
            const std::string value = behind_last_equals_sign(line);
            if (contains(line, "MNTPATH=") && !knows_mount_point)
                mnt_path = value.substr(1);
            if (contains(line, "MOUNTPOINT="))
                mount_point = value;
        }
    }

    int read_unmount_answer()
    {
        int exit_status = 0;
        for (const std::string& line : response_lines(next_output())) {
            responses.push_back(line);
            if (!is_exit_status(line))
                continue;
            reported.push_back(line);
            exit_status = exit_status_of(line);
        }
        return exit_status;
    }

    std::vector<std::string> outputs_;
    int timeout_;
};

// The command line of an unmount, and how the log shows one.
inline std::string unmount_command(const std::string& server, int port,
                                   const std::string& credential, const std::string& mount_point)
{
    const std::string line = "\"/usr/varnis/stowline/bin/ixfs\" umount -f -server " + server +
                             " -port " + std::to_string(port) + " -cred " + credential + " " +
                             mount_point;
    return line.substr(0, longest_text);
}

inline std::string displayed(const std::string& command, const std::string& credential)
{
    const long position =
        static_cast<long>(command.size()) + 8 - static_cast<long>(credential.size());
    if (position == 0)
        return "";
    std::string shown = command;
    if (position > 0 && position < static_cast<long>(command.size()))
        shown.resize(static_cast<std::size_t>(position));
    return (shown + "...").substr(0, longest_text);
}

} // namespace reference

#endif
