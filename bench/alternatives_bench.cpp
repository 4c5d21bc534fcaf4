// What a user would write in place of the library, for the same disks: a shell loop with sed and
// ln, and a Python script. Wall time of the whole program. The library's own figure is that of
// prepare_bench.cpp; its wall time is here, too.
#include "figures.h"
#include "support/image.h"
#include "support/measure.h"

#include <cstdlib>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

namespace fs = std::filesystem;

namespace
{

constexpr char disk_list[] = "/usr/varnis/var/bench/alternatives.disks";
constexpr char answer[] = "/usr/varnis/var/bench/alternatives.paths";

// A view's files by name: the content of a descriptor, the inode of a data link.
using Tree = std::map<std::string, std::string>;

std::string what_is(const fs::path& file)
{
    struct stat status {
    };
    if (stat(file.c_str(), &status) != 0 || status.st_size > 0)
        return read_file(file);
    return "inode " + std::to_string(status.st_ino);
}

Tree tree_of(const std::string& folder)
{
    Tree tree;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder))
        tree[entry.path().filename()] = what_is(entry.path());
    return tree;
}

std::string lines_of(const std::vector<std::string>& texts)
{
    std::string lines;
    for (const std::string& text : texts)
        lines += text + '\n';
    return lines;
}

// Made when it is first needed.
const Image& image_of(int disks)
{
    static const Image image("alternatives", disks);
    return image;
}

ec_status prepare(const Image& image, std::vector<std::string>& paths)
{
    std::vector<std::string> entries = image.entries();
    std::string configuration;
    return ixfs_prepare_vmir(image.creds(), entries, nullptr, configuration, paths, false);
}

class ByLibrary : public Work
{
public:
    explicit ByLibrary(int disks) : image_(image_of(disks)) {}

    void set_up() override { image_.remove_view(); }

    bool call() override
    {
        std::vector<std::string> paths;
        return prepare(image_, paths) == EC_OK;
    }

private:
    const Image& image_;
};

// It must make the very same tree as the library, and name the same disks.
class ByProgram : public Work
{
public:
    ByProgram(int disks, const std::string& program)
        : image_(image_of(disks)), command_(command_line(program, image_.creds()))
    {
        write_file(disk_list, lines_of(image_.entries()));
        image_.remove_view();
        std::vector<std::string> paths;
        prepare(image_, paths);
        wanted_answer_ = lines_of(paths);
        wanted_tree_ = tree_of(image_.view_folder());
    }

    void set_up() override { image_.remove_view(); }
    bool call() override { return std::system(command_.c_str()) == 0; }
    bool is_done() override
    {
        return read_file(answer) == wanted_answer_ && tree_of(image_.view_folder()) == wanted_tree_;
    }

private:
    static std::string command_line(const std::string& program, const MountCreds& creds)
    {
        return IXFS_BENCH_ALTERNATIVES "/" + program + " /usr/varnis/stowline/bin/ixfs " +
               creds.server + " " + std::to_string(creds.port) + " " + creds.backup_id + " <" +
               disk_list + " >" + answer;
    }

    const Image& image_;
    std::string command_;
    std::string wanted_answer_;
    Tree wanted_tree_;
};

} // namespace

void add_alternative_figures(Extent extent)
{
    const int disks = extent == Extent::whole ? 512 : 8;
    const std::string figure = "prepare_" + std::to_string(disks) + "_disks";
    add_benchmark(
        figure, "library_wall", [disks] { return std::make_unique<ByLibrary>(disks); },
        wall_seconds);
    for (const auto& [what, program] :
         {std::pair{"shell", "prepare.sh"}, std::pair{"python", "prepare.py"}})
        add_benchmark(
            figure, what,
            [disks, program = program] { return std::make_unique<ByProgram>(disks, program); },
            wall_seconds)
            ->Repetitions(few_repetitions);
}
