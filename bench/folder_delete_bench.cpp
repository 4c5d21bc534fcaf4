// Deleting a folder with many files: by the library, by a bare loop, and by "rm -rf". Of rm the CPU
// time of its whole process counts.
#include "figures.h"
#include "floor/folder_delete.h"
#include "support/children_time.h"
#include "support/counting_log.h"
#include "support/file_tree.h"
#include "support/measure.h"

#include <ixfs.h>

#include <memory>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace
{

constexpr char folder[] = "/usr/varnis/var/to_be_deleted";

struct Tree {
    std::string figure;
    int folders; // 0: the files are in the folder itself
    int files;   // in each
};

class Deletion : public Work
{
public:
    Deletion(Tree tree, bool (*remove)()) : tree_(std::move(tree)), remove_(remove) {}

    void set_up() override
    {
        if (tree_.folders == 0)
            make_files(folder, tree_.files);
        else
            make_folders(folder, tree_.folders, tree_.files);
    }
    bool call() override { return remove_(); }
    bool is_done() override { return access(folder, F_OK) != 0; }

private:
    Tree tree_;
    bool (*remove_)();
};

bool delete_by_library()
{
    static const std::unique_ptr<_ixfs_control_t, decltype(&ixfs_term)> handle(
        ixfs_init(0, nullptr, count_line, nullptr, nullptr), ixfs_term);
    return _ixfs_folder_delete(handle.get(), folder) == 0;
}

bool delete_by_loop()
{
    return floor_folder_delete(folder) == 0;
}

bool delete_by_rm()
{
    const char* const arguments[] = {"rm", "-rf", folder, nullptr};
    pid_t process = -1;
    int status = -1;
    return posix_spawnp(&process, "rm", nullptr, nullptr, const_cast<char* const*>(arguments),
                        environ) == 0 &&
           waitpid(process, &status, 0) == process && status == 0;
}

void add(const Tree& tree, const char* what, bool (*remove)(), Clock clock)
{
    add_benchmark(
        tree.figure, what, [=] { return std::make_unique<Deletion>(tree, remove); }, clock);
}

} // namespace

void add_folder_delete_figures(Extent extent)
{
    const int folders = extent == Extent::whole ? 200 : 2;
    const int files = extent == Extent::whole ? 20'000 : 200;
    const Tree deep{"folder_delete_" + std::to_string(folders) + "x100", folders, 100};
    const Tree flat{"folder_delete_1x" + std::to_string(files), 0, files};
    for (const Tree& tree : {deep, flat}) {
        add(tree, "ours", delete_by_library, cpu_seconds);
        add(tree, "floor", delete_by_loop, cpu_seconds);
        add(tree, "rm", delete_by_rm, cpu_seconds_of_children);
    }
}
