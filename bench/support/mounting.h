// Mounting by the bench's helper, with arguments that don't matter.
#ifndef IXFS_BENCH_MOUNTING_H
#define IXFS_BENCH_MOUNTING_H

#include <ixfs.h>

#include <string>

// A handle that mounts a server, as often as one likes.
class MountingHandle
{
public:
    MountingHandle(std::string server, ixfs_log_callback log_callback);
    ~MountingHandle() { ixfs_term(handle_); }
    MountingHandle(const MountingHandle&) = delete;
    MountingHandle& operator=(const MountingHandle&) = delete;

    // Returns the mount point, or null.
    const char* mount() const;

    // Returns whether it succeeded.
    bool unmount() const;

    _ixfs_control_t* get() const { return handle_; }

private:
    std::string server_;
    _ixfs_control_t* handle_;
};

// The command lines that the library runs for these.
std::string mount_command(const std::string& server);
std::string unmount_command(const std::string& server);

// Lets each run of the helper last so long, while this object lives.
class SlowHelper
{
public:
    explicit SlowHelper(const char* milliseconds);
    ~SlowHelper();
    SlowHelper(const SlowHelper&) = delete;
    SlowHelper& operator=(const SlowHelper&) = delete;
};

#endif
