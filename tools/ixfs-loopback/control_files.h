// The files by which a test steers the stand-in and sees what it was asked to do.
#ifndef IXFS_LOOPBACK_CONTROL_FILES_H
#define IXFS_LOOPBACK_CONTROL_FILES_H

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

// Steers one command: the files in one directory, each of which may be missing. All but take_busy
// only read. A number that cannot be read is thrown as std::runtime_error.
class ControlFiles
{
public:
    explicit ControlFiles(std::filesystem::path directory) : directory_(std::move(directory)) {}

    std::optional<std::string> credential() const;
    std::chrono::duration<double> hang() const;
    int status() const;
    bool leaves_out(const std::string& key) const;
    bool keeps_mount() const;

    // Returns whether this call is to be answered "busy", and counts it: exact also when several
    // processes ask at once.
    bool take_busy() const;

private:
    std::filesystem::path directory_;
};

// Appends `line` in one piece, whatever other processes append at that moment.
void append_line(const std::filesystem::path& file, const std::string& line);

#endif
