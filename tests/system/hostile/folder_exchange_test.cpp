// Folders that another process moves, or exchanges for links, while they are deleted.
#include "handle_test.h"
#include "race.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <sys/syscall.h>

namespace fs = std::filesystem;

namespace
{

// Not through the C library: the racer is to lose no time.
bool exchange(const std::string& one, const std::string& other)
{
    constexpr unsigned int exchanged = 2; // RENAME_EXCHANGE
    return syscall(SYS_renameat2, AT_FDCWD, one.c_str(), AT_FDCWD, other.c_str(), exchanged) == 0;
}

bool move(const std::string& from, const std::string& to)
{
    return syscall(SYS_rename, from.c_str(), to.c_str()) == 0;
}

class FolderExchange : public testing::Test
{
protected:
    FolderExchange()
    {
        for (int i = 0; i < 5; ++i)
            dir.write_outside(i);
    }

    struct Folders : TempDir {
        Folders() { make_folder("outside/kept"); }
        void write_outside(int number) const
        {
            write("outside/" + std::to_string(number), "bytes");
            write("outside/kept/" + std::to_string(number), "bytes");
        }
    };

    // The tree to be deleted takes the place of what is left of the last one when it is complete.
    void show(const std::string& folder)
    {
        for (int i = 0; i < 5; ++i)
            dir.write("new/" + folder + "/" + std::to_string(i), "");
        std::error_code error;
        const std::string left = dir / "left" + std::to_string(++shown);
        fs::rename(dir / "d", left, error);
        fs::rename(dir / "new", dir / "d");
        fs::remove_all(left, error); // what the racer is about to put into it stays a while
    }

    int remove() const { return _ixfs_folder_delete(handle.get(), (dir / "d").c_str()); }

    void expect_outside_unchanged() const
    {
        for (int i = 0; i < 5; ++i) {
            ASSERT_TRUE(dir.exists("outside/" + std::to_string(i)));
            ASSERT_TRUE(dir.exists("outside/kept/" + std::to_string(i)));
        }
    }

    Folders dir;
    int shown = 0;
    const Handle handle{ixfs_init(0, nullptr, nullptr, nullptr, nullptr)};
};

TEST_F(FolderExchange, NothingBehindALinkInAFoldersPlaceIsDeleted)
{
    const std::string link = dir / "link";
    const std::string folder = dir / "d/a";
    fs::create_directory_symlink(dir / "outside", link);
    const Racer racer([&] {
        if (!exchange(link, folder) || exchange(link, folder))
            return;
        fs::remove_all(link); // the deletion has taken the link itself
        fs::create_directory_symlink(dir / "outside", link);
    });
    int disturbed = 0;
    int deletions = 0;
    for (const RaceTime time; !time.is_over() && !HasFatalFailure(); ++deletions) {
        dir.make_folder("new/a/kept");
        show("a");
        disturbed += remove() != 0;
        expect_outside_unchanged();
    }
    std::printf("%d deletions, %d of them disturbed\n", deletions, disturbed);
    EXPECT_GT(disturbed, 0) << "nobody met anybody";
}

TEST_F(FolderExchange, NothingBesideAFolderThatWasMovedAwayIsDeleted)
{
    const std::string deep = "a/s/s/s/s/s/s/s/s/s/s/s/s/s/s/s/s/s/s/s/s";
    const std::string moved = dir / "outside/moved";
    const std::string folder = dir / "d/a/s";
    const Racer racer([&] {
        if (move(folder, moved) && !move(moved, folder))
            fs::remove_all(moved); // its place is gone
    });
    int disturbed = 0;
    int deletions = 0;
    for (const RaceTime time; !time.is_over() && !HasFatalFailure(); ++deletions) {
        dir.make_folder("new/" + deep);
        show(deep);
        disturbed += remove() != 0;
        expect_outside_unchanged();
    }
    std::printf("%d deletions, %d of them disturbed\n", deletions, disturbed);
    EXPECT_GT(disturbed, 0) << "nobody met anybody";
}

} // namespace
