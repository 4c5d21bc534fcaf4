// Reading of /proc, where each file may be gone or closed to this user.
#ifndef IXFS_TOOLS_PROC_FILE_H
#define IXFS_TOOLS_PROC_FILE_H

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

// The path of a file that tells about a process.
std::string proc_path(pid_t pid, const std::string& file);

// A whole file, or nothing, with errno.
std::optional<std::string> read_proc_file(const std::string& path);

// Where a symbolic link such as /proc/1/ns/ipc leads, or nothing, with errno.
std::optional<std::string> read_proc_link(const std::string& path);

// The entries of a folder that are numbers: processes, threads or descriptors. None if it cannot be
// read.
std::vector<int> numbers_in_proc(const std::string& folder);

#endif
