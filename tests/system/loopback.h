// Media servers and the mount helper, as ixfs-loopback plays them. For tests that run under
// tests/support/in_namespace.
#ifndef IXFS_TESTS_LOOPBACK_H
#define IXFS_TESTS_LOOPBACK_H

#include <string>
#include <vector>

// The stand-in helper's control files. A test begins and ends without any.
class Loopback
{
public:
    Loopback();
    ~Loopback();
    Loopback(const Loopback&) = delete;
    Loopback& operator=(const Loopback&) = delete;

    // Steers a command, "mount" or "umount", by one of the files that ixfs-loopback --help names.
    void steer(const std::string& command, const std::string& file, const std::string& text = "");

    // The arguments of each call so far, and of those that began while another was running.
    std::vector<std::string> calls() const;
    std::vector<std::string> overlaps() const;
};

// Makes the next call of one of the stand-in's commands hang until it is let go.
class HangingCall
{
public:
    explicit HangingCall(const std::string& command = "mount");
    ~HangingCall();
    HangingCall(const HangingCall&) = delete;
    HangingCall& operator=(const HangingCall&) = delete;

    // Returns once the call hangs.
    void wait_until_hung();
    void let_go();

private:
    std::string path_;
    int descriptor_ = -1;
};

// A media server with the sample image of a VM of three disks. Mounts of it that are left when it
// ends go with it.
class SampleServer
{
public:
    static constexpr int disk_size = 8 << 20; // bytes

    explicit SampleServer(const std::string& name, const std::string& schedule = "full");
    ~SampleServer();
    SampleServer(const SampleServer&) = delete;
    SampleServer& operator=(const SampleServer&) = delete;

    // How many mounts lie on the mount point.
    int mounts() const;

    const std::string name;
    const std::string root;        // of what it offers, on the server's side
    const std::string mount_point; // where ixfs_mount puts it
    const std::string image;       // directory of the image, relative to the root
    std::string backup_id;
    std::vector<std::string> disks; // in datastore form
};

#endif
