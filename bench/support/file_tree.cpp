#include "file_tree.h"

#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr mode_t folder_mode = 0755;
constexpr mode_t file_mode = 0644;

bool make_file(int folder, int number)
{
    char name[32];
    std::snprintf(name, sizeof(name), "disk%05d-flat.vmdk", number);
    const int file = openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, file_mode);
    return file != -1 && close(file) == 0;
}

} // namespace

bool make_files(const char* folder, int files)
{
    if (mkdir(folder, folder_mode) != 0)
        return false;
    const int opened = open(folder, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    int made = 0;
    while (made < files && make_file(opened, made))
        ++made;
    return close(opened) == 0 && made == files;
}

bool make_folders(const char* folder, int folders, int files_of_each)
{
    bool made = mkdir(folder, folder_mode) == 0;
    for (int i = 0; made && i < folders; ++i) {
        char path[256];
        std::snprintf(path, sizeof(path), "%s/folder%03d", folder, i);
        made = make_files(path, files_of_each);
    }
    return made;
}
