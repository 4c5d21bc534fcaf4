#include "regular_file.h"

#include "beneath.h"

#include <cstdio>
#include <fcntl.h>

namespace
{

// Without waiting, should the file have become a FIFO since it was looked at.
constexpr int to_read = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

bool is_usable(const FileStatus& status)
{
    if (status && !is_regular(*status))
        errno = error_of_type(*status);
    return status && is_regular(*status);
}

RegularFile checked(OpenFile file)
{
    if (!file.is_open())
        return {};
    const FileStatus status = status_of(file.descriptor());
    if (!is_usable(status))
        return {};
    return {std::move(file), *status};
}

} // namespace

RegularFile open_regular_file(int folder, const char* name)
{
    if (!is_usable(status_of(folder, name)))
        return {};
    return checked(OpenFile(openat(folder, name, to_read | O_NOFOLLOW)));
}

RegularFile open_regular_file_beneath(int folder, const char* path)
{
    // Opened for the look alone at first. Then the very same file is opened again for reading.
    const RegularFile found =
        checked(open_beneath(folder, path, O_PATH | O_CLOEXEC, Links::that_stay_below));
    if (!found.file.is_open())
        return {};
    char itself[sizeof("/proc/self/fd/-2147483648")];
    std::snprintf(itself, sizeof(itself), "/proc/self/fd/%d", found.file.descriptor());
    return checked(OpenFile(open(itself, to_read)));
}
