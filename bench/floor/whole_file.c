#include "whole_file.h"

#include <fcntl.h>
#include <stdbool.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

static bool read_all(int file, char* content, size_t size)
{
    size_t done = 0;
    ssize_t length = 0;
    while ((length = read(file, content + done, size - done)) > 0)
        done += (size_t)length;
    return length == 0 && done == size; /* the last read finds the end */
}

char* floor_whole_file(const char* path, size_t* size)
{
    char* content = NULL;
    struct stat status;
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file == -1)
        return NULL;
    if (fstat(file, &status) == 0 && status.st_size > 0) {
        *size = (size_t)status.st_size;
        content = malloc(*size);
        if (content != NULL && !read_all(file, content, *size)) {
            free(content);
            content = NULL;
        }
    }
    close(file);
    return content;
}
