#include "regular_file.h"

#include "beneath.h"

#include <cstdio>
#include <fcntl.h>

namespace
{

// Without waiting, should the file have become a FIFO since it was looked at.
constexpr int to_read = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

constexpr int to_look = O_PATH | O_CLOEXEC;

RegularFile checked(OpenFile file)
{
    if (!file.is_open())
        return {};
    const FileStatus status = status_of(file.descriptor());
    if (!status)
        return {};
    if (!is_regular(*status)) {
        errno = error_of_type(*status);
        return {};
    }
    return {std::move(file), *status};
}

// Opens for reading what was opened for a look: the very same file, whatever has its name by now.
// Fails with ENOENT where there is no /proc.
OpenFile open_again(const OpenFile& looked_at)
{
    char itself[sizeof("/proc/self/fd/-2147483648")];
    std::snprintf(itself, sizeof(itself), "/proc/self/fd/%d", looked_at.descriptor());
    return OpenFile(open(itself, to_read));
}

// `open_by_name` opens the file for reading in the way in which it was found.
template <typename OpenByName>
RegularFile open_found(RegularFile found, OpenByName open_by_name)
{
    if (!found.file.is_open())
        return found;
    OpenFile file = open_again(found.file);
    if (!file.is_open() && errno == ENOENT)
        return checked(open_by_name());
    found.file = std::move(file);
    return found;
}

} // namespace

RegularFile open_regular_file(int folder, const char* name)
{
    return open_found(checked(OpenFile(openat(folder, name, to_look | O_NOFOLLOW))),
                      [=] { return OpenFile(openat(folder, name, to_read | O_NOFOLLOW)); });
}

RegularFile open_regular_file_beneath(int folder, const char* path)
{
    return open_found(checked(open_beneath(folder, path, to_look, Links::that_stay_below)),
                      [=] { return open_beneath(folder, path, to_read, Links::that_stay_below); });
}
