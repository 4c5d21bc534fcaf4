// One hook answers for all calls that do the same with a path.
#include "interpose.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace
{

using Paths = std::vector<std::string>;

// A folder that is open, with a file and a folder in it.
class InterposeSiblings : public testing::Test
{
protected:
    InterposeSiblings()
    {
        dir.write("file", "bytes\n");
        dir.make_folder("folder");
    }
    ~InterposeSiblings() override { close(folder); }

    TempDir dir;
    const std::string file = dir / "file";
    const std::string inner = dir / "folder";
    const int folder = open(dir.path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    Paths paths;

    // Notes the paths, and lets the calls fail.
    template <typename Hook>
    auto refuse(Hook& hook)
    {
        return hook([this](const char* path, auto...) -> std::optional<int> {
            paths.emplace_back(path);
            errno = EXDEV;
            return -1;
        });
    }
};

TEST_F(InterposeSiblings, AccessIsToldInFull)
{
    const auto hook = refuse(interpose::on_access);
    EXPECT_EQ(access(file.c_str(), R_OK), -1);
    EXPECT_EQ(euidaccess(file.c_str(), R_OK), -1);
    EXPECT_EQ(eaccess(file.c_str(), R_OK), -1);
    EXPECT_EQ(faccessat(folder, "file", R_OK, AT_EACCESS), -1);
    EXPECT_EQ(syscall(SYS_faccessat2, folder, "file", R_OK, 0), -1);
    EXPECT_EQ(errno, EXDEV);
    EXPECT_EQ(access(("/proc/self/fd/" + std::to_string(folder) + "/file").c_str(), R_OK), -1);
    EXPECT_EQ(paths, Paths(6, file));
    EXPECT_EQ(faccessat(AT_FDCWD, "relative", R_OK, 0), -1);
    EXPECT_EQ(faccessat(folder, "/elsewhere", R_OK, 0), -1);
    EXPECT_EQ((Paths{paths.end() - 2, paths.end()}), (Paths{"relative", "/elsewhere"}));
}

TEST_F(InterposeSiblings, FoldersAreMade)
{
    const auto hook = refuse(interpose::on_mkdir);
    EXPECT_EQ(mkdir((dir / "new").c_str(), 0700), -1);
    EXPECT_EQ(mkdirat(folder, "new", 0700), -1);
    EXPECT_EQ(paths, Paths(2, dir / "new"));
    EXPECT_FALSE(dir.exists("new"));
}

TEST_F(InterposeSiblings, LinksAreMade)
{
    Paths made;
    const auto hook = interpose::on_link([&](const char* existing, const char* path) {
        made.insert(made.end(), {existing, path});
        errno = EXDEV;
        return std::optional<int>(-1);
    });
    EXPECT_EQ(link(file.c_str(), (dir / "new").c_str()), -1);
    EXPECT_EQ(linkat(folder, "file", folder, "new", 0), -1);
    EXPECT_EQ(linkat(AT_FDCWD, file.c_str(), folder, "new", AT_SYMLINK_FOLLOW), -1);
    EXPECT_EQ(made, (Paths{file, dir / "new", file, dir / "new", file, dir / "new"}));
    EXPECT_FALSE(dir.exists("new"));
}

TEST_F(InterposeSiblings, FilesAndFoldersAreRemoved)
{
    {
        const auto hook = refuse(interpose::on_unlink);
        EXPECT_EQ(unlink(file.c_str()), -1);
        EXPECT_EQ(unlinkat(folder, "file", 0), -1);
        EXPECT_EQ(std::remove(file.c_str()), -1);
        EXPECT_EQ(paths, Paths(3, file));
    }
    paths.clear();
    {
        const auto hook = refuse(interpose::on_rmdir);
        EXPECT_EQ(rmdir(inner.c_str()), -1);
        EXPECT_EQ(unlinkat(folder, "folder", AT_REMOVEDIR), -1);
        EXPECT_EQ(std::remove(inner.c_str()), -1);
        EXPECT_EQ(paths, Paths(3, inner));
    }
    EXPECT_TRUE(dir.exists("file"));
    EXPECT_EQ(std::remove(inner.c_str()), 0);
}

TEST_F(InterposeSiblings, StatusIsAskedFor)
{
    const auto hook = refuse(interpose::on_stat);
    struct stat status {
    };
    struct statx more {
    };
    const int opened = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(stat(file.c_str(), &status), -1);
    EXPECT_EQ(lstat(file.c_str(), &status), -1);
    EXPECT_EQ(fstat(opened, &status), -1);
    EXPECT_EQ(fstatat(folder, "file", &status, 0), -1);
    EXPECT_EQ(statx(folder, "file", 0, STATX_SIZE, &more), -1);
    EXPECT_EQ(statx(opened, "", AT_EMPTY_PATH, STATX_SIZE, &more), -1);
    close(opened);
    EXPECT_EQ(paths, Paths(6, file));
}

TEST_F(InterposeSiblings, AnsweredStatusReachesStatxWithoutWhatItCannotTell)
{
    const auto hook = interpose::on_stat([](const char*, struct stat* status) {
        status->st_size = 4711;
        return std::optional<int>(0);
    });
    struct statx status {
    };
    EXPECT_EQ(statx(folder, "file", 0, STATX_SIZE, &status), 0);
    EXPECT_EQ(status.stx_size, 4711U);
    EXPECT_EQ(status.stx_attributes_mask & STATX_ATTR_MOUNT_ROOT, 0U);
}

TEST_F(InterposeSiblings, FilesAreOpened)
{
    const auto hook = refuse(interpose::on_open);
    open_how how{};
    EXPECT_EQ(open(file.c_str(), O_RDONLY | O_CLOEXEC), -1);
    EXPECT_EQ(openat(folder, "file", O_RDONLY | O_CLOEXEC), -1);
    EXPECT_EQ(syscall(SYS_openat2, folder, "file", &how, sizeof(how)), -1);
    EXPECT_EQ(std::fopen(file.c_str(), "re"), nullptr);
    EXPECT_EQ(fopen64(file.c_str(), "re"), nullptr);
    EXPECT_FALSE(std::ifstream(file));
    EXPECT_EQ(paths, Paths(6, file));
}

TEST_F(InterposeSiblings, AnAnsweredDescriptorBecomesAStream)
{
    const int opened = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    const auto hook = interpose::on_open.returns(opened);
    FILE* const stream = std::fopen("/nowhere", "r");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(fileno(stream), opened);
    std::fclose(stream);
}

TEST_F(InterposeSiblings, FoldersAreOpened)
{
    const auto hook = refuse(interpose::on_opendir);
    const auto files = interpose::on_open.watch();
    open_how how{};
    how.flags = O_DIRECTORY;
    EXPECT_EQ(opendir(inner.c_str()), nullptr);
    EXPECT_EQ(open(inner.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC), -1);
    EXPECT_EQ(openat(folder, "folder", O_DIRECTORY | O_CLOEXEC), -1);
    EXPECT_EQ(syscall(SYS_openat2, folder, "folder", &how, sizeof(how)), -1);
    EXPECT_EQ(paths, Paths(4, inner));
    EXPECT_EQ(files.calls(), 0);
}

TEST_F(InterposeSiblings, FoldersAreRead)
{
    DIR* const opened = opendir(dir.path().c_str());
    ASSERT_NE(opened, nullptr);
    {
        const auto hook = interpose::on_readdir.fails(EIO);
        EXPECT_EQ(readdir(opened), nullptr);
        EXPECT_EQ(readdir64(opened), nullptr);
        EXPECT_EQ(hook.calls(), 2);
    }
    EXPECT_NE(readdir(opened), nullptr);
    closedir(opened);
}

} // namespace
