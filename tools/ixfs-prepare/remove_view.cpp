#include "remove_view.h"

#include "open_descriptor.h"

#include <ixfs_vmir.h>

#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace
{

using Handle = std::unique_ptr<_ixfs_control_t, void (*)(_ixfs_control_t*)>;

// A slow server's silence is no answer. The library, too, asks that often.
template <typename Call>
int patiently(const Call& call)
{
    constexpr int most_calls = 100;
    int result = call();
    for (int calls = 1; result == -1 && errno == ETIME && calls < most_calls; ++calls)
        result = call();
    return result;
}

OpenDescriptor open_folder(int parent, const char* name)
{
    return OpenDescriptor(patiently(
        [&] { return openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC); }));
}

// The folder that a path leads to from an open one, segment by segment; not open, with errno, if it
// cannot be reached.
OpenDescriptor walk(OpenDescriptor folder, const std::string& path)
{
    for (std::size_t begin = 0; folder.is_open() && begin < path.size();) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        if (end != begin)
            folder = open_folder(folder.number(), path.substr(begin, end - begin).c_str());
        begin = end + 1;
    }
    return folder;
}

Outcome failure(ec_status status, const std::string& text)
{
    return {status, text, {}, {}};
}

Outcome not_reached(const std::string& path)
{
    const int error = errno;
    if (error == ENOENT)
        return failure(EC_FILE_NOT_FOUND, "there is no such image: " + path);
    return failure(EC_SYSTEM_ERROR, path + ": " + std::generic_category().message(error));
}

Outcome delete_view(_ixfs_control_t* handle, const std::string& folder, const std::string& view)
{
    struct stat status {
    };
    if (patiently([&] { return lstat(view.c_str(), &status); }) == -1 && errno == ENOENT)
        return failure(EC_OK, "nothing to remove: " + folder + " holds no view");
    if (_ixfs_folder_delete(handle, view.c_str()) != 0)
        return failure(EC_SYSTEM_ERROR,
                       "the view could not be removed as a whole: " + folder + "/" + view);
    return failure(EC_OK, "view removed: " + folder + "/" + view);
}

Outcome remove_from(_ixfs_control_t* handle, const char* mount_point, const Request& request)
{
    std::string client;
    long backup_time = 0;
    const ec_status status =
        makeClientAndBackupTime(handle, request.backup_id, client, backup_time);
    if (status != EC_OK)
        return failure(status, "");
    LmfString view_path;
    buildViewPath(handle, client, backup_time, request.schedule_type, view_path);
    const std::string& path = view_path.text();
    const std::string image = path.substr(0, path.rfind('/'));

    const OpenDescriptor folder =
        walk(OpenDescriptor(open(mount_point, O_RDONLY | O_DIRECTORY | O_CLOEXEC)), image);
    if (!folder.is_open())
        return not_reached(image);
    if (fchdir(folder.number()) != 0)
        return not_reached(image);
    return delete_view(handle, image, path.substr(path.rfind('/') + 1));
}

// The working directory, which would keep the image mounted, leaves it with this object.
class WorkingDirectory
{
public:
    WorkingDirectory() = default;
    WorkingDirectory(const WorkingDirectory&) = delete;
    WorkingDirectory& operator=(const WorkingDirectory&) = delete;
    ~WorkingDirectory() { [[maybe_unused]] const int left = chdir("/"); }
};

} // namespace

Outcome remove_view(const Request& request, ixfs_log_callback log)
{
    // Ends the mount on every path, also after an exception.
    const Handle handle(ixfs_init(IXFS_FLAG_UNMOUNT_CRED, nullptr, log, nullptr, nullptr),
                        ixfs_term);
    if (handle == nullptr)
        return failure(EC_NO_HANDLE, "");
    const char* const mount_point = ixfs_mount(handle.get(), request.credentials.mount.c_str(),
                                               request.credentials.unmount.c_str(), request.port,
                                               request.server.c_str(), request.timeout, nullptr);
    if (mount_point == nullptr)
        return failure(ixfs_last_error(handle.get()), "");
    const WorkingDirectory working_directory;
    return remove_from(handle.get(), mount_point, request);
}
