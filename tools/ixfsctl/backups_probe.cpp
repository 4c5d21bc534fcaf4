#include "child_call.h"
#include "mount_directories.h"

#include <cerrno>
#include <sys/stat.h>
#include <utility>

namespace
{

constexpr std::chrono::seconds patience(1);

// Returns the error number, 0 if it is there.
int look_at(const std::string& path)
{
    struct stat status {
    };
    return lstat(path.c_str(), &status) == 0 ? 0 : errno;
}

ChildCall begin_look(const std::string& folder)
{
    return ChildCall([path = folder + "/backups"] { return look_at(path); });
}

Backups meaning_of(int error)
{
    switch (error) {
    case 0:
        return Backups::found;
    case ENOENT:
        return Backups::missing;
    default:
        return Backups::failed;
    }
}

} // namespace

void look_for_backups(std::vector<MountDirectory>& directories)
{
    std::vector<std::pair<MountDirectory*, ChildCall>> looks;
    for (MountDirectory& directory : directories) {
        if (!directory.layers.empty())
            looks.emplace_back(&directory, begin_look(directory.path));
    }
    const auto end = ChildCall::Clock::now() + patience;
    for (const auto& [directory, look] : looks) {
        const std::optional<int> error = look.result_by(end);
        directory->error = error.value_or(0);
        directory->backups = error ? meaning_of(*error) : Backups::no_answer;
    }
}

bool answers(const std::string& folder)
{
    return begin_look(folder).result_by(ChildCall::Clock::now() + patience).has_value();
}
