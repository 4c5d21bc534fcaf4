// Fixtures with a media server, and with a handle to mount it.
#ifndef IXFS_TESTS_LOOPBACK_TEST_H
#define IXFS_TESTS_LOOPBACK_TEST_H

#include "handle_test.h"
#include "ixfs_vmir.h"
#include "loopback.h"
#include "process_state.h"
#include "tree_snapshot.h"

#include <gmock/gmock.h>

#include <string>

// At the end of its test no mount of the server and no lock is left.
class LoopbackTest : public testing::Test
{
protected:
    static constexpr char mount_cred[] = "mount-secret";
    static constexpr char unmount_cred[] = "unmount-secret";
    static constexpr int port = 4010;

    void TearDown() override { EXPECT_EQ(server.mounts(), 0); }

    // What the stand-in is called with, in its log's form, to mount or unmount a server.
    static std::string mount_call(const SampleServer& server)
    {
        return "mount -server " + server.name + " -port " + std::to_string(port) +
               " -timeout 30 -cred " + mount_cred + " " + server.mount_point;
    }
    static std::string unmount_call(const SampleServer& server)
    {
        return "umount -f -server " + server.name + " -port " + std::to_string(port) + " -cred " +
               unmount_cred + " " + server.mount_point;
    }

    // What a preparation needs to mount the image of a server's full backup. Valid while the server
    // lives.
    static MountCreds creds_of(const SampleServer& server)
    {
        MountCreds creds{};
        creds.server = server.name.c_str();
        creds.port = port;
        creds.timeout = 30;
        creds.mount_cred = mount_cred;
        creds.unmount_cred = unmount_cred;
        creds.backup_id = server.backup_id;
        return creds;
    }

    NoLocksLeft no_locks_left;
    Loopback loopback;
    SampleServer server{"server"};
    TreeSnapshot content{server.root};
    LogRecorder log;
};

// At the end of its test the server also offers what it offered before, to the byte.
class MountingTest : public LoopbackTest
{
protected:
    void TearDown() override
    {
        handle.reset();
        EXPECT_THAT(content.changes(), testing::IsEmpty());
        LoopbackTest::TearDown();
    }

    static const char* mount(const Handle& handle, const SampleServer& server,
                             unsigned int timeout = 30)
    {
        return ixfs_mount(handle.get(), mount_cred, unmount_cred, port, server.name.c_str(),
                          timeout, nullptr);
    }
    const char* mount() const { return mount(handle, server); }

    Handle handle = make_handle();
};

#endif
