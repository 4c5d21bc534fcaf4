#include "prepare.h"

#include <errno.h>
#include <fcntl.h>
#include <stdbool.h>
#include <sys/stat.h>
#include <unistd.h>

static bool is_there(int folder, const char* name)
{
    return faccessat(folder, name, R_OK, 0) == 0;
}

static bool write_descriptor(int from, int to, const struct floor_disk* disk)
{
    char text[4096];
    ssize_t length = 0;
    do {
        length = read(from, text, sizeof(text)); /* the text, and then the end */
    } while (length > 0);
    return length == 0 && write(to, disk->text, disk->length) == (ssize_t)disk->length;
}

static bool copy_descriptor(int disks, int view, const struct floor_disk* disk)
{
    if (!is_there(disks, disk->old_descriptor))
        return false;
    if (!is_there(view, disk->new_descriptor) && errno != ENOENT)
        return false;
    const int from = openat(disks, disk->old_descriptor, O_RDONLY | O_CLOEXEC);
    const int to =
        openat(view, disk->new_descriptor, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    const bool written = from != -1 && to != -1 && write_descriptor(from, to, disk);
    return close(from) == 0 && close(to) == 0 && written;
}

static bool link_data(int disks, int view, const struct floor_disk* disk)
{
    if (!is_there(disks, disk->data))
        return false;
    if (is_there(view, disk->link))
        return true;
    return linkat(disks, disk->data, view, disk->link, 0) == 0;
}

int floor_prepare(const char* disk_folder, const char* view_folder, const struct floor_disk* disks,
                  size_t count)
{
    const int from = open(disk_folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    mkdir(view_folder, 0755);
    const int view = open(view_folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    bool done = from != -1 && view != -1;
    for (size_t i = 0; i < count && done; ++i)
        done = copy_descriptor(from, view, &disks[i]) && link_data(from, view, &disks[i]);
    const int error = done ? 0 : errno;
    close(from);
    close(view);
    return error;
}
