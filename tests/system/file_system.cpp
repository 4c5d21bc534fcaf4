#include "file_system.h"

#include "fault_mount.h"
#include "program.h"
#include "real_mount.h"
#include "temp_dir.h"
#include "watchdog.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <sys/mount.h>

namespace fs = std::filesystem;

namespace
{

constexpr std::uintmax_t disk_size = 320 << 20; // bytes, of a sparse file; xfs takes no less

// The programs that make file systems are not in every user's path.
void run_or_give_up(const std::string& command)
{
    const ProgramResult result =
        run_program({"/bin/sh", "-c", "PATH=$PATH:/usr/sbin:/sbin; " + command});
    if (result.exit_status != 0)
        throw NoFileSystem(command + ": " + result.errors);
}

bool is_behind_a_loop_device(const std::string& file)
{
    for (const fs::directory_entry& device : fs::directory_iterator("/sys/block")) {
        std::ifstream backing(device.path() / "loop/backing_file");
        std::string name;
        if (std::getline(backing, name) && name == file)
            return true;
    }
    return false;
}

// The device is the mount's own: the kernel lets it go with that, also when the test is killed.
class LoopFileSystem : public FileSystem
{
public:
    LoopFileSystem(const std::string& mkfs, std::string folder) : folder_(std::move(folder))
    {
        dir_.write("disk", "");
        fs::resize_file(file_, disk_size);
        run_or_give_up(mkfs + " " + file_);
        run_or_give_up("mount -o loop " + file_ + " " + folder_);
    }
    ~LoopFileSystem() override
    {
        umount2(folder_.c_str(), MNT_DETACH);
        const Watchdog watchdog(std::chrono::seconds(30), "letting go of a loop device");
        look_until([this] { return !is_behind_a_loop_device(file_); });
    }

private:
    const TempDir dir_;
    const std::string file_ = dir_ / "disk";
    const std::string folder_;
};

FileSystemKind made_by(const std::string& name, const std::string& mkfs)
{
    return {name, [mkfs](const std::string& folder) {
                return std::make_unique<LoopFileSystem>(mkfs, folder);
            }};
}

// Shows a folder, in its own place, and takes what is written to it.
class Overlay : public FileSystem
{
public:
    Overlay(std::string folder, const std::string& options) : folder_(std::move(folder))
    {
        for (const char* const part : {"upper", "work"})
            made(dir_ / (std::string("top/") + part));
        const std::string layers = "lowerdir=" + folder_ + ",upperdir=" + dir_.path() +
                                   "/top/upper,workdir=" + dir_.path() + "/top/work" + options;
        if (mount("ixfs-test", folder_.c_str(), "overlay", 0, layers.c_str()) != 0)
            throw NoFileSystem(std::string("overlay: ") + std::strerror(errno));
    }
    ~Overlay() override { umount2(folder_.c_str(), MNT_DETACH); }

private:
    static std::string made(const std::string& folder)
    {
        fs::create_directory(folder);
        return folder;
    }

    const TempDir dir_;
    const RealMount top_ = RealMount::tmpfs(made(dir_ / "top"));
    const std::string folder_;
};

class PassThrough : public FileSystem
{
public:
    PassThrough(const std::string& folder, faultfs::FaultMount::Numbers numbers)
        : file_system_(folder, folder, numbers)
    {
    }

private:
    faultfs::FaultMount file_system_;
};

FileSystemKind pass_through(const std::string& name, faultfs::FaultMount::Numbers numbers)
{
    return {name, [numbers](const std::string& folder) {
                const std::string obstacle = faultfs::FaultMount::obstacle();
                if (!obstacle.empty())
                    throw NoFileSystem(obstacle);
                return std::make_unique<PassThrough>(folder, numbers);
            }};
}

FileSystemKind overlay(const std::string& name, const std::string& options)
{
    return {name, [options](const std::string& folder) {
                return std::make_unique<Overlay>(folder, options);
            }};
}

} // namespace

void PrintTo(const FileSystemKind& kind, std::ostream* stream)
{
    *stream << kind.name;
}

std::vector<FileSystemKind> file_systems_with_a_device()
{
    return {made_by("Ext4", "mkfs.ext4 -q -F"), made_by("Xfs", "mkfs.xfs -q -f"),
            made_by("Btrfs", "mkfs.btrfs -q -f")};
}

std::vector<FileSystemKind> overlays()
{
    return {overlay("Overlay", ""), overlay("OverlayWithNumbersOfItsOwn", ",xino=on"),
            overlay("OverlayThatKeepsHardLinks", ",index=on")};
}

std::vector<FileSystemKind> pass_through_file_systems()
{
    using Numbers = faultfs::FaultMount::Numbers;
    return {pass_through("Fuse", Numbers::of_source),
            pass_through("FuseThatNumbersHardLinksApart", Numbers::by_name)};
}
