// What the log shows of a command, by the lengths of the command and of the credential in it. An
// unmount can have any: the helper may tell whatever mount point it likes.
#include "mount_fixture.h"

#include <string>

namespace
{

struct DisplayCase {
    const char* name;
    std::size_t command;    // bytes of the command before it is cut to 1,023
    std::size_t credential; // bytes
    std::size_t kept;       // bytes of the command in the display
    const char* appended;
};

std::string case_name(const testing::TestParamInfo<DisplayCase>& info)
{
    return info.param.name;
}

class HelperDisplay : public MountTest, public testing::WithParamInterface<DisplayCase>
{
protected:
    HelperDisplay() { handle = make_handle(IXFS_FLAG_UNMOUNT_CRED); }

    RecordedCommands commands;
};

TEST_P(HelperDisplay, IsCutAsFarAsTheBufferAllows)
{
    const std::string before =
        R"("/usr/varnis/stowline/bin/ixfs" umount -f -server media1 -port 40100 -cred )";
    const std::string credential(GetParam().credential, 'c');
    const std::size_t fixed = before.size() + credential.size() + 1;
    // A mount point is never empty; past the buffer's end it makes no difference.
    const std::string mount_point(GetParam().command > fixed ? GetParam().command - fixed : 1, 'm');

    helper.answers({{"MOUNTPOINT=" + mount_point, "EXIT_STATUS=0"}});
    ASSERT_NE(ixfs_mount(handle.get(), mount_cred, credential.c_str(), port, server, 60, nullptr),
              nullptr);
    EXPECT_EQ(ixfs_unmount(handle.get()), EC_OK);

    const std::string command = (before + credential + " " + mount_point).substr(0, 1023);
    EXPECT_EQ(commands.lines().at(1), command);
    EXPECT_EQ(displayed_command(), command.substr(0, GetParam().kept) + GetParam().appended);
}

INSTANTIATE_TEST_SUITE_P(
    , HelperDisplay,
    testing::Values(DisplayCase{"OneCharacterIsNotCut", 200, 1, 200, "..."},
                    DisplayCase{"EightCharactersCutNothing", 200, 8, 200, "..."},
                    DisplayCase{"NineCharactersCutOne", 200, 9, 199, "..."},
                    DisplayCase{"LongCredentialIsCutIntoItself", 300, 200, 108, "..."},
                    DisplayCase{"ThreeDotsJustFit", 1020, 8, 1020, "..."},
                    DisplayCase{"TwoDotsFit", 1021, 8, 1021, ".."},
                    DisplayCase{"OneDotFits", 1022, 8, 1022, "."},
                    DisplayCase{"NoDotFits", 1023, 8, 1023, ""},
                    DisplayCase{"PositionJustBehindTheBuffer", 1023, 7, 1023, ""},
                    DisplayCase{"PositionFarthestBehindTheBuffer", 1023, 1, 1023, ""},
                    DisplayCase{"PositionBehindTheBufferWithRoomForADot", 1022, 1, 1022, "."},
                    DisplayCase{"CutCommandIsMeasuredAfterTheCut", 2000, 108, 923, "..."},
                    DisplayCase{"PositionOne", 2000, 1030, 1, "..."},
                    DisplayCase{"PositionZeroShowsNothing", 2000, 1031, 0, ""},
                    DisplayCase{"PositionJustBeforeTheBuffer", 2000, 1032, 1023, ""},
                    DisplayCase{"PositionFarBeforeTheBuffer", 6000, 5000, 1023, ""}),
    case_name);

} // namespace
