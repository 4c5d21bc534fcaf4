#include "copy.h"

#include <errno.h>
#include <fcntl.h>
#include <stdbool.h>
#include <unistd.h>

/* Larger blocks are hardly faster, and smaller ones are slower. */
enum { block_size = 64 * 1024 };

static bool copy(int from, int to)
{
    static char block[block_size];
    ssize_t length = 0;
    while ((length = read(from, block, sizeof(block))) > 0) {
        if (write(to, block, (size_t)length) != length)
            return false;
    }
    return length == 0;
}

int floor_copy(const char* from, const char* to)
{
    const int old_file = open(from, O_RDONLY | O_CLOEXEC);
    const int new_file = open(to, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    const bool copied = old_file != -1 && new_file != -1 && copy(old_file, new_file);
    const int error = copied ? 0 : errno;
    close(old_file);
    return close(new_file) == 0 ? error : errno;
}
