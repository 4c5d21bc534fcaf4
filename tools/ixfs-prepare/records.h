// What the worker process tells the supervisor, through a pipe.
#ifndef IXFS_PREPARE_RECORDS_H
#define IXFS_PREPARE_RECORDS_H

#include "mount_table.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

// A line that the library logged.
struct LogLine {
    std::chrono::system_clock::time_point time;
    int severity;
    std::string tag;
    std::string message; // with its newline
};

// The mounts that the helper is known to have made and not to have taken off.
struct OwnMounts {
    std::vector<Mount> before; // what was there already, at or below `folders`
    std::vector<Mount> made;
    std::vector<std::string> folders; // the mount directory, and the mount point if it is another
    int exchanged = 0; // mounts of others that the unmount took off, because they were on top
};

// What the call came to.
struct Outcome {
    int status;
    std::string status_text;
    std::vector<std::string> paths;
    std::string configuration;
};

using Record = std::variant<LogLine, OwnMounts, Outcome>;

// A record as bytes. It carries its length, so records can follow each other in a stream.
std::string encode(const Record& record);

// Takes a stream apart, in whatever pieces it arrives.
class RecordReader
{
public:
    void take(std::string_view bytes) { pending_ += bytes; }

    // The next whole record. Throws std::runtime_error for bytes that encode() did not make.
    std::optional<Record> next();

private:
    std::string pending_;
};

#endif
