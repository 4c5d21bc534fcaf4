// Systems that do not tell what is mounted where.
#ifndef IXFS_TESTS_HIDDEN_MOUNTS_H
#define IXFS_TESTS_HIDDEN_MOUNTS_H

#include "interpose.h"

#include <cerrno>
#include <optional>
#include <string>

#include <sys/stat.h>

// A kernel that does not tell of a directory whether it is the root of a mount, as before Linux
// 5.8. Holds on_stat.
class NoMountRoots
{
    decltype(interpose::on_stat)::Hook stat_ = interpose::on_stat(
        [](const char* path, struct stat* status) { return std::optional(stat(path, status)); });
};

// A system on which that file of /proc/thread-self, or all in that folder of it, cannot be opened.
// Holds on_open.
class NoProcFile
{
public:
    explicit NoProcFile(const std::string& name) : path_("/proc/thread-self/" + name) {}

private:
    std::string path_;
    decltype(interpose::on_open)::Hook open_ =
        interpose::on_open([this](const char* path, int) -> std::optional<int> {
            if (std::string(path).compare(0, path_.size(), path_) != 0)
                return std::nullopt;
            errno = EACCES;
            return -1;
        });
};

#endif
