// Another process that mounts and unmounts on the mount point while that is deleted.
#include "handle_test.h"
#include "hidden_mounts.h"
#include "interpose.h"
#include "race.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>

#include <sys/mount.h>
#include <sys/syscall.h>

namespace
{

// A helper that takes no time: it says that it has mounted, and unmounts nothing. Holds on_popen
// and on_pclose.
class QuickHelper
{
public:
    explicit QuickHelper(const std::string& mount_point)
        : answer_("MNTPATH=/m/x\nMOUNTPOINT=" + mount_point + "\nEXIT_STATUS=0\n")
    {
    }

private:
    std::string answer_;
    decltype(interpose::on_popen)::Hook popen_ =
        interpose::on_popen([this](const char*, const char*) {
            return std::optional(fmemopen(answer_.data(), answer_.size(), "r"));
        });
    decltype(interpose::on_pclose)::Hook pclose_ =
        interpose::on_pclose([](FILE* stream) { return std::optional(std::fclose(stream)); });
};

class MountRace : public testing::Test
{
protected:
    MountRace()
    {
        dir.make_folder("stored/backups");
        dir.write("stored/backups/disk", "data");
    }

    // An unmount, whose mount point is now mounted and now not.
    void mount_and_unmount()
    {
        std::error_code error;
        std::filesystem::create_directories(mount_point + "/backups", error);
        const Handle handle(ixfs_init(0, nullptr, note, nullptr, nullptr));
        ixfs_mount(handle.get(), "mount-secret", "unmount-secret", 1, "media1", 0, nullptr);
        ixfs_unmount(handle.get());
    }

    void race()
    {
        kept = 0;
        const Racer racer([this] {
            syscall(SYS_mount, stored.c_str(), mount_point.c_str(), "none", MS_BIND, nullptr);
            syscall(SYS_umount2, mount_point.c_str(), MNT_DETACH);
        });
        int unmounts = 0;
        for (const RaceTime time; !time.is_over() && !HasFatalFailure(); ++unmounts) {
            mount_and_unmount();
            ASSERT_TRUE(dir.exists("stored/backups/disk"));
        }
        std::printf("%d unmounts, %d of them kept what was mounted\n", unmounts, kept);
        EXPECT_GT(kept, 0) << "nobody met anybody";
    }

    void TearDown() override
    {
        while (umount2(mount_point.c_str(), MNT_DETACH) == 0)
            continue;
    }

private:
    static void note(int, const char*, const char* message)
    {
        kept += std::string(message).find("ERR - still mounted") == 0;
    }

    static inline int kept = 0;
    TempDir dir;
    const std::string stored = dir / "stored";
    const std::string mount_point = dir / "mount";
    QuickHelper helper{mount_point};
};

TEST_F(MountRace, BackupIsNeverDeletedThroughItsMount)
{
    race();
}

TEST_F(MountRace, NorByAKernelThatDoesNotTellOfMounts)
{
    const NoMountRoots old_kernel;
    race();
}

} // namespace
