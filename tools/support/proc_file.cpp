#include "proc_file.h"

#include "open_descriptor.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstddef>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <system_error>
#include <unistd.h>

namespace
{

struct DirectoryCloser {
    void operator()(DIR* directory) const { closedir(directory); }
};

} // namespace

std::string proc_path(pid_t pid, const std::string& file)
{
    return "/proc/" + std::to_string(pid) + "/" + file;
}

std::optional<std::string> read_proc_file(const std::string& path)
{
    const OpenDescriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file.is_open())
        return std::nullopt;
    std::string text;
    char bytes[4096];
    for (;;) {
        const ssize_t count = read(file.number(), bytes, sizeof(bytes));
        if (count > 0)
            text.append(bytes, static_cast<std::size_t>(count));
        else if (count == 0)
            return text;
        else if (errno != EINTR)
            return std::nullopt;
    }
}

std::optional<std::string> read_proc_link(const std::string& path)
{
    char target[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), target, sizeof(target));
    if (length == -1)
        return std::nullopt;
    return std::string(target, static_cast<std::size_t>(length));
}

std::vector<int> numbers_in_proc(const std::string& folder)
{
    std::vector<int> numbers;
    const std::unique_ptr<DIR, DirectoryCloser> directory(opendir(folder.c_str()));
    if (directory == nullptr)
        return numbers;
    while (const dirent* const entry = readdir(directory.get())) {
        const char* const end = entry->d_name + std::strlen(entry->d_name);
        int number = 0;
        const auto [stop, error] = std::from_chars(entry->d_name, end, number);
        if (error == std::errc() && stop == end)
            numbers.push_back(number);
    }
    return numbers;
}
