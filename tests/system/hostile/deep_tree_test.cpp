// Trees that are deeper than a stack, or than the descriptors that a process may have.
#include "child_process.h"
#include "handle_test.h"
#include "process_state.h"
#include "real_mount.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <fcntl.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

// Folders one in another, the innermost with a file.
class DeepTree : public testing::Test
{
protected:
    // What a failed test leaves is too deep for most ways to delete it.
    ~DeepTree() override { EXPECT_EQ(std::system(("rm -rf '" + dir / "d" + "'").c_str()), 0); }

    void make_tree(int levels, const std::string& name) const
    {
        dir.make_folder("d");
        int folder = open((dir / "d").c_str(), O_PATH);
        for (int level = 1; level < levels; ++level) {
            ASSERT_EQ(mkdirat(folder, name.c_str(), 0700), 0);
            const int inner = openat(folder, name.c_str(), O_PATH);
            ASSERT_NE(inner, -1);
            close(folder);
            folder = inner;
        }
        close(openat(folder, "file", O_CREAT | O_WRONLY, 0600));
        close(folder);
    }

    // In a process of its own, which may crash. Returns its exit status.
    template <typename Prepare>
    int remove_after(Prepare prepare) const
    {
        ChildProcess process(STDERR_FILENO, [&](ChildProcess::Parent&) {
            prepare();
            return remove();
        });
        return process.wait();
    }

    int remove() const
    {
        lines = 0;
        const Handle handle(ixfs_init(0, nullptr, count_line, nullptr, nullptr));
        return _ixfs_folder_delete(handle.get(), (dir / "d").c_str());
    }

    static void* remove_in_thread(void* test)
    {
        return static_cast<DeepTree*>(test)->remove() == 0 ? test : nullptr;
    }

    static void count_line(int, const char*, const char*) { ++lines; }

    static inline int lines = 0;
    TempDir dir;
    const RealMount in_memory = RealMount::tmpfs(dir.path()); // a disk would take a minute
};

TEST_F(DeepTree, OfAHundredThousandLevelsIsDeleted)
{
    for (const std::string name : {"s", "a name of more letters than a short text has"}) {
        constexpr int levels = 100'000;
        make_tree(levels, name);
        const NoDescriptorsLeft no_descriptors_left;
        const auto start = std::chrono::steady_clock::now();
        EXPECT_EQ(remove_after([] {}), 0);
        EXPECT_FALSE(dir.exists("d"));
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
        std::printf("%d levels took %.1f s\n", levels, time.count());
    }
}

TEST_F(DeepTree, SaysTheSameForEachLevel)
{
    constexpr int levels = 2000;
    make_tree(levels, "s");
    EXPECT_EQ(remove(), 0);
    EXPECT_EQ(lines, 2 * levels) << "found and removed, but d is only removed, and there is a file";
}

TEST_F(DeepTree, IsDeletedOnAThreadWithASmallStack)
{
    constexpr std::size_t stack_size = 256 << 10; // bytes
    make_tree(2000, "s");
    ChildProcess process(STDERR_FILENO, [&](ChildProcess::Parent&) {
        pthread_attr_t attributes;
        pthread_attr_init(&attributes);
        pthread_attr_setstacksize(&attributes, stack_size);
        pthread_t thread{};
        void* result = nullptr;
        pthread_create(&thread, &attributes, remove_in_thread, this);
        pthread_join(thread, &result);
        return result != nullptr ? 0 : 1;
    });
    EXPECT_EQ(process.wait(), 0);
    EXPECT_FALSE(dir.exists("d"));
}

TEST_F(DeepTree, IsDeletedWithFewDescriptors)
{
    make_tree(2000, "s");
    EXPECT_EQ(remove_after([] {
                  const rlimit few{32, 32};
                  setrlimit(RLIMIT_NOFILE, &few);
              }),
              0);
    EXPECT_FALSE(dir.exists("d"));
}

} // namespace
