// The helper's command lines, as the shell gets them and as the log shows them.
#include "mount_fixture.h"

#include <string>
#include <vector>

namespace
{

class HelperCommand : public MountTest
{
protected:
    RecordedCommands commands;
};

TEST_F(HelperCommand, MountCommandLineIsExact)
{
    mount();
    EXPECT_EQ(
        commands.lines(),
        (std::vector<std::string>{
            R"("/usr/varnis/stowline/bin/ixfs" mount -server media1 -port 40100 -timeout 60  )"
            R"(-cred mount-secret /usr/varnis/var/ixfs/media1)"}));
    EXPECT_EQ(helper.runs(), (std::vector<ScriptedHelper::Arguments>{
                                 {"mount", "-server", "media1", "-port", "40100", "-timeout", "60",
                                  "-cred", "mount-secret", "/usr/varnis/var/ixfs/media1"}}));
}

TEST_F(HelperCommand, MountWithTimeoutZeroHasThreeBlanksBeforeTheCredential)
{
    mount(0);
    EXPECT_EQ(commands.lines(),
              (std::vector<std::string>{
                  R"("/usr/varnis/stowline/bin/ixfs" mount -server media1 -port 40100   )"
                  R"(-cred mount-secret /usr/varnis/var/ixfs/media1)"}));
}

TEST_F(HelperCommand, UnmountCommandLineIsExact)
{
    given_mount(mounts_image());
    ixfs_unmount(handle.get());
    ASSERT_EQ(commands.lines().size(), 2U);
    EXPECT_EQ(commands.lines()[1],
              R"("/usr/varnis/stowline/bin/ixfs" umount -f -server media1 -port 40100 )"
              "-cred unmount-secret " +
                  image.path());
    EXPECT_EQ(helper.runs().at(1),
              (ScriptedHelper::Arguments{"umount", "-f", "-server", "media1", "-port", "40100",
                                         "-cred", "unmount-secret", image.path()}));
}

TEST_F(HelperCommand, OnlyTheHelperPathIsQuoted)
{
    ixfs_mount(handle.get(), "two words", unmount_cred, port, server, 60, nullptr);
    EXPECT_EQ(helper.runs(), (std::vector<ScriptedHelper::Arguments>{
                                 {"mount", "-server", "media1", "-port", "40100", "-timeout", "60",
                                  "-cred", "two", "words", "/usr/varnis/var/ixfs/media1"}}));
}

TEST_F(HelperCommand, MountDisplayIsCutAtTheCredentialsLengthFromTheEnd)
{
    mount();
    EXPECT_EQ(displayed_command(), shown_mount_command); // 12 characters less 8
}

TEST_F(HelperCommand, CredentialUnderEightCharactersLeavesTheWholeCommandInTheDisplay)
{
    ixfs_mount(handle.get(), "1234567", unmount_cred, port, server, 60, nullptr);
    EXPECT_EQ(displayed_command(), commands.lines().at(0) + "...");
}

TEST_F(HelperCommand, UnmountDisplayIsWholeWithoutTheFlag)
{
    given_mount(mounts_image());
    ixfs_unmount(handle.get());
    EXPECT_EQ(displayed_command(), commands.lines().at(1));
}

TEST_F(HelperCommand, UnmountDisplayIsCutWithTheFlag)
{
    handle = make_handle(IXFS_FLAG_UNMOUNT_CRED);
    given_mount(mounts_image());
    ixfs_unmount(handle.get());
    const std::string command = commands.lines().at(1);
    EXPECT_EQ(displayed_command(), command.substr(0, command.size() - 6) + "..."); // 14 less 8
}

} // namespace
