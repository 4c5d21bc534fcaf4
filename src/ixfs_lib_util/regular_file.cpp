#include "regular_file.h"

#include "beneath.h"
#include "interruption.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/statvfs.h>

namespace
{

constexpr int to_read = O_RDONLY | O_NOCTTY | O_CLOEXEC;

// By its name a file is opened without waiting, should it have become a FIFO since it was looked
// at.
constexpr int to_read_by_name = to_read | O_NONBLOCK;

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

// "thread-self": a thread may have descriptors of its own.
constexpr char descriptors[] = "/proc/thread-self/fd";

// Opens for reading what was opened for a look: the very same file, whatever has its name by now.
// So it is no FIFO, and may be waited for: who has a lease on a regular file gives it up first.
OpenFile open_again(const OpenFile& looked_at)
{
    char itself[sizeof(descriptors) + sizeof("/-2147483648")];
    std::snprintf(itself, sizeof(itself), "%s/%d", descriptors, looked_at.descriptor());
    return OpenFile(open(itself, to_read));
}

// Whether a failure to open a file again says nothing about the file: there is no /proc.
bool cannot_open_again(int error)
{
    return error == ENOENT && access(descriptors, F_OK) != 0;
}

// `open_by_name` opens the file for reading in the way in which it was found.
template <typename OpenByName>
RegularFile open_found(RegularFile found, OpenByName open_by_name)
{
    if (!found.file.is_open())
        return found;
    OpenFile file = open_again(found.file);
    if (!file.is_open() && cannot_open_again(errno))
        return checked(open_by_name());
    found.file = std::move(file);
    return found;
}

} // namespace

Devices devices_in(int folder)
{
    struct statvfs status {
    };
    const bool refused = fstatvfs(folder, &status) == 0 && (status.f_flag & ST_NODEV) != 0;
    return refused ? Devices::are_refused : Devices::may_be_opened;
}

RegularFile open_regular_file(int folder, const char* name, Devices devices)
{
    // Where no device can be opened, a file can be opened first and looked at then. That saves two
    // calls, and a fifth of a preparation's time. What is not opened so is looked at all the same:
    // that tells why, or waits for who has a lease on it.
    if (devices == Devices::are_refused) {
        RegularFile opened = checked(OpenFile(openat(folder, name, to_read_by_name | O_NOFOLLOW)));
        if (opened.file.is_open())
            return opened;
    }
    return open_found(checked(OpenFile(openat(folder, name, to_look | O_NOFOLLOW))),
                      [=] { return OpenFile(openat(folder, name, to_read_by_name | O_NOFOLLOW)); });
}

RegularFile open_regular_file_beneath(int folder, const char* path)
{
    return open_found(checked(open_beneath(folder, path, to_look, Links::that_stay_below)), [=] {
        return open_beneath(folder, path, to_read_by_name, Links::that_stay_below);
    });
}

ssize_t read_regular_file(int file, char* block, std::size_t size)
{
    const auto read_once = [=] {
        return uninterrupted([=] { return read(file, block, size); });
    };
    ssize_t length = read_once();
    constexpr int waiting = 0; // of the flags that can be set
    if (length == -1 && errno == EAGAIN && fcntl(file, F_SETFL, waiting) == 0)
        length = read_once();
    return length;
}
