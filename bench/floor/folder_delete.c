#include "folder_delete.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

static int remove_folder(int parent, const char* name);

static int remove_entry(int folder, const char* name)
{
    if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0 || unlinkat(folder, name, 0) == 0)
        return 0;
    return errno == EISDIR ? remove_folder(folder, name) : -1;
}

static int remove_folder(int parent, const char* name)
{
    const int folder = openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    DIR* const stream = folder != -1 ? fdopendir(folder) : NULL;
    if (stream == NULL)
        return -1;
    int result = 0;
    const struct dirent* entry = NULL;
    while (result == 0 && (entry = readdir(stream)) != NULL)
        result = remove_entry(folder, entry->d_name);
    closedir(stream);
    return result == 0 ? unlinkat(parent, name, AT_REMOVEDIR) : -1;
}

int floor_folder_delete(const char* path)
{
    return remove_folder(AT_FDCWD, path);
}
