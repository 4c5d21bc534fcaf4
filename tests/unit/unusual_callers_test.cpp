// Preparations by callers, and beside processes, that are not as others are.
#include "canned_helper.h"
#include "child_process.h"
#include "image_test.h"

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <csignal>
#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

namespace
{

namespace fs = std::filesystem;

class UnusualCallers : public ImageTest
{
protected:
    UnusualCallers() { add_disk("a"); }

    void expect_prepared() const
    {
        EXPECT_EQ(config, "<vm/>");
        EXPECT_EQ(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
        EXPECT_TRUE(fs::equivalent(in_view("a-flat.vmdk"), in_image("vm/a.vmdk")));
    }

    // Prepares while another process has a write lease on a file, which it gives up when it is
    // asked for it.
    void prepare_leased(const std::string& path)
    {
        ChildProcess holder(STDERR_FILENO, [&path](ChildProcess::Parent& parent) {
            sigset_t asked;
            sigemptyset(&asked);
            sigaddset(&asked, SIGIO);
            const int file = open(path.c_str(), O_RDWR | O_CLOEXEC);
            if (sigprocmask(SIG_BLOCK, &asked, nullptr) != 0 ||
                fcntl(file, F_SETLEASE, F_WRLCK) != 0)
                return -1;
            parent.pause();
            return sigwaitinfo(&asked, nullptr) == SIGIO ? close(file) : -1;
        });
        holder.wait_for_pause();
        holder.go_on();
        EXPECT_EQ(prepare(), EC_OK);
        EXPECT_EQ(holder.wait(), 0);
    }
};

// Files that the process has open, under all the numbers that the thread is likely to use.
class Decoys
{
public:
    explicit Decoys(const std::string& path)
    {
        constexpr int count = 64;
        for (int i = 0; i < count; ++i)
            numbers_.push_back(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    }
    ~Decoys() { close_all(); }
    Decoys(const Decoys&) = delete;
    Decoys& operator=(const Decoys&) = delete;

    void close_all() const
    {
        for (const int number : numbers_)
            close(number);
    }

private:
    std::vector<int> numbers_;
};

TEST_F(UnusualCallers, ThreadWithDescriptorsOfItsOwnReadsTheImage)
{
    const TempDir elsewhere;
    elsewhere.write("secret", "RW 1 VMFS \"secret\"\nddb.secret");
    const Decoys decoys(elsewhere / "secret");
    int unshared = -1;
    ec_status status = EC_SYSTEM_ERROR;
    std::thread([&] {
        unshared = unshare(CLONE_FILES);
        if (unshared != 0)
            return;
        decoys.close_all(); // only this thread's
        status = prepare();
    }).join();
    ASSERT_EQ(unshared, 0);
    EXPECT_EQ(status, EC_OK);
    expect_prepared();
}

TEST_F(UnusualCallers, LeasedDescriptorIsWaitedFor)
{
    prepare_leased(in_image("vm/a.vmdk.desc"));
    expect_prepared();
}

TEST_F(UnusualCallers, ImageInTheRootIsPrepared)
{
    mount_point.make_folder("usr/varnis/var/ixfs");
    ChildProcess child(STDERR_FILENO, [this](ChildProcess::Parent&) -> int {
        const CannedHelper canned("MOUNTPOINT=/\nEXIT_STATUS=0\n");
        if (chroot(mount_point.path().c_str()) != 0 || chdir("/") != 0)
            return -1;
        return ixfs_prepare_vmir(creds, entries, nullptr, config, out, new_disk_uuids);
    });
    EXPECT_EQ(child.wait(), EC_OK);
    EXPECT_EQ(mount_point.read(view_path("a.vmdk")), descriptor("a-flat.vmdk"));
    EXPECT_TRUE(fs::equivalent(in_view("a-flat.vmdk"), in_image("vm/a.vmdk")));
}

} // namespace
