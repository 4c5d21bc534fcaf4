// ixfs-faultfs SOURCE MOUNT_POINT [number-by-name]: a file system that shows a folder and fails
// where the rules of its standard input, which is memory shared with a test, tell it to. It says so
// once it is mounted.
#include "rules.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <fuse.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

using namespace faultfs;

// What the kernel had not released yet when the file system ended, libfuse leaves behind.
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:libfuse3\n";
}

namespace
{

Rules* rules;
bool numbers_by_name; // else as the source does

// The same file in the source, which is the working directory: a mount that covers it is no
// hindrance.
const char* in_source(const char* path)
{
    return path[1] == '\0' ? "." : path + 1;
}

int result_of(ssize_t result)
{
    return result == -1 ? -errno : static_cast<int>(result);
}

// Makes a call, unless the rules fail it. Returns what FUSE is to be told.
template <typename Call>
int unless_failed(Operation operation, const char* path, Call call)
{
    const int error = rules->judge(operation, path);
    return error != 0 ? -error : result_of(call());
}

int look_up(const char* path, struct stat* attributes, fuse_file_info*)
{
    return unless_failed(op_lookup, path, [&] { return lstat(in_source(path), attributes); });
}

int check_access(const char* path, int wanted)
{
    return unless_failed(op_access, path, [&] { return access(in_source(path), wanted); });
}

int make_folder(const char* path, mode_t mode)
{
    return unless_failed(op_mkdir, path, [&] { return mkdir(in_source(path), mode); });
}

int remove_folder(const char* path)
{
    return unless_failed(op_rmdir, path, [&] { return rmdir(in_source(path)); });
}

int remove_file(const char* path)
{
    return unless_failed(op_unlink, path, [&] { return unlink(in_source(path)); });
}

int make_link(const char* from, const char* to)
{
    return unless_failed(op_link, to, [&] { return link(in_source(from), in_source(to)); });
}

int list_folder(const char* path, void* names, fuse_fill_dir_t add, off_t, fuse_file_info*,
                fuse_readdir_flags)
{
    return unless_failed(op_readdir, path, [&] {
        DIR* const folder = opendir(in_source(path));
        if (folder == nullptr)
            return -1;
        while (const dirent* const entry = readdir(folder))
            add(names, entry->d_name, nullptr, 0, fuse_fill_dir_flags{});
        return closedir(folder);
    });
}

int open_for(Operation operation, const char* path, fuse_file_info* info, mode_t mode)
{
    return unless_failed(operation, path, [&] {
        const int file = open(in_source(path), info->flags | O_CLOEXEC, mode);
        info->fh = static_cast<std::uint64_t>(file);
        return file == -1 ? -1 : 0;
    });
}

int create_file(const char* path, mode_t mode, fuse_file_info* info)
{
    return open_for(op_create, path, info, mode);
}

int open_file(const char* path, fuse_file_info* info)
{
    const bool writes = (info->flags & O_ACCMODE) != O_RDONLY || (info->flags & O_TRUNC) != 0;
    return open_for(writes ? op_open_write : op_open, path, info, 0);
}

int close_file(const char*, fuse_file_info* info)
{
    return result_of(close(static_cast<int>(info->fh)));
}

int read_file(const char* path, char* bytes, std::size_t size, off_t offset, fuse_file_info* info)
{
    const int error = rules->judge(op_read, path, offset, size);
    return error != 0 ? -error : result_of(pread(static_cast<int>(info->fh), bytes, size, offset));
}

int write_file(const char* path, const char* bytes, std::size_t size, off_t offset,
               fuse_file_info* info)
{
    const int error = rules->judge(op_write, path, offset, size);
    return error != 0 ? -error : result_of(pwrite(static_cast<int>(info->fh), bytes, size, offset));
}

// Each system call is to reach the rules, so the kernel keeps nothing.
void* keep_nothing(fuse_conn_info*, fuse_config* config)
{
    config->use_ino = numbers_by_name ? 0 : 1; // by which hard links are known
    config->hard_remove = 1;
    config->direct_io = 1;
    config->entry_timeout = config->attr_timeout = config->negative_timeout = 0;
    return nullptr;
}

fuse_operations operations()
{
    fuse_operations all{};
    all.init = keep_nothing;
    all.getattr = look_up;
    all.access = check_access;
    all.mkdir = make_folder;
    all.rmdir = remove_folder;
    all.unlink = remove_file;
    all.link = make_link;
    all.readdir = list_folder;
    all.create = create_file;
    all.open = open_file;
    all.release = close_file;
    all.read = read_file;
    all.write = write_file;
    return all;
}

bool take_rules()
{
    void* const memory =
        mmap(nullptr, sizeof(Rules), PROT_READ | PROT_WRITE, MAP_SHARED, STDIN_FILENO, 0);
    rules = static_cast<Rules*>(memory);
    return memory != MAP_FAILED;
}

// Serves until the mount ends or a signal tells it to. One thread does everything, so a counter
// never misses a call, nor a call a rule.
int serve(fuse* file_system, const char* mount_point)
{
    if (fuse_mount(file_system, mount_point) != 0)
        return EXIT_FAILURE;
    fuse_set_signal_handlers(fuse_get_session(file_system));
    int result = static_cast<int>(write(STDOUT_FILENO, "\n", 1)) == 1 ? 0 : -1;
    if (result == 0)
        result = fuse_loop(file_system);
    fuse_unmount(file_system);
    return result == 0 || result == SIGTERM ? EXIT_SUCCESS : EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv)
{
    numbers_by_name = argc == 4 && std::strcmp(argv[3], "number-by-name") == 0;
    if ((argc != 3 && !numbers_by_name) || !take_rules()) {
        std::fputs("usage: ixfs-faultfs SOURCE MOUNT_POINT [number-by-name] <RULES\n", stderr);
        return 2;
    }
    if (chdir(argv[1]) != 0) {
        std::perror(argv[1]);
        return EXIT_FAILURE;
    }
    prctl(PR_SET_PDEATHSIG, SIGTERM); // no test leaves one behind
    umask(0);                         // the kernel has applied the caller's
    fuse_args no_options = FUSE_ARGS_INIT(1, argv);
    const fuse_operations served = operations();
    fuse* const file_system = fuse_new(&no_options, &served, sizeof served, nullptr);
    fuse_opt_free_args(&no_options);
    if (file_system == nullptr)
        return EXIT_FAILURE;
    const int status = serve(file_system, argv[2]);
    fuse_destroy(file_system);
    return status;
}
