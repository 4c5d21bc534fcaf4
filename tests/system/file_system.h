// File systems of many kinds, made by the test that needs one and gone with it.
#ifndef IXFS_TESTS_FILE_SYSTEM_H
#define IXFS_TESTS_FILE_SYSTEM_H

#include <functional>
#include <memory>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

class FileSystem
{
public:
    FileSystem() = default;
    virtual ~FileSystem() = default;
    FileSystem(const FileSystem&) = delete;
    FileSystem& operator=(const FileSystem&) = delete;
};

// This machine, or this user, cannot have such a file system, for the reason that it tells.
class NoFileSystem : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

struct FileSystemKind {
    std::string name;

    // Mounts a new one on a folder, or throws NoFileSystem.
    std::function<std::unique_ptr<FileSystem>(const std::string& folder)> make;
};
void PrintTo(const FileSystemKind& kind, std::ostream* stream);

std::vector<FileSystemKind> file_systems_with_a_device();

// These show what the folder holds. The latter cannot do all that making an image takes.
std::vector<FileSystemKind> overlays();
std::vector<FileSystemKind> pass_through_file_systems();

#endif
