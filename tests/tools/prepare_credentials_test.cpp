// The credentials of ixfs-prepare: where they come from, which are refused, and their secrecy.
#include "prepare_test.h"

using testing::Contains;
using testing::HasSubstr;
using testing::Not;

namespace
{

class PrepareCredentials : public PrepareTest
{
protected:
    // Prepares the image and checks that each helper run gets its own credential.
    void expect_use_of(const std::string& mount, const std::string& unmount,
                       const Streams& streams = {})
    {
        provide_image();
        EXPECT_EQ(run(streams).exit_status, 0);
        const auto runs = helper.runs();
        ASSERT_THAT(runs, testing::SizeIs(2));
        EXPECT_EQ(runs[0].front(), "mount");
        EXPECT_THAT(runs[0], Contains(mount));
        EXPECT_THAT(runs[0], Not(Contains(unmount)));
        EXPECT_EQ(runs[1].front(), "umount");
        EXPECT_THAT(runs[1], Contains(unmount));
        EXPECT_THAT(runs[1], Not(Contains(mount)));
    }
};

TEST_F(PrepareCredentials, ComeFromFiles)
{
    use_mount_credential("first-s3cret\n");
    use_unmount_credential("second-s3cret"); // the last line of a file may lack its newline
    expect_use_of("first-s3cret", "second-s3cret");
}

TEST_F(PrepareCredentials, ComeFromTwoLinesOfStandardInput)
{
    use_standard_input();
    expect_use_of("first-s3cret", "second-s3cret", {"first-s3cret\nsecond-s3cret\nmore\n"});
}

TEST_F(PrepareCredentials, AreWanted)
{
    options.erase("mount-cred-file");
    options.erase("unmount-cred-file");
    expect_refusal("credentials are missing");
}

TEST_F(PrepareCredentials, MountFileAloneIsRefused)
{
    options.erase("unmount-cred-file");
    expect_refusal("--mount-cred-file requires --unmount-cred-file");
}

TEST_F(PrepareCredentials, UnmountFileAloneIsRefused)
{
    options.erase("mount-cred-file");
    expect_refusal("--unmount-cred-file requires --mount-cred-file");
}

TEST_F(PrepareCredentials, FilesAndStandardInputExcludeEachOther)
{
    flags = {"--creds-stdin"};
    expect_refusal("excludes --creds-stdin");
}

TEST_F(PrepareCredentials, AreNotTakenFromTheCommandLine)
{
    for (const char* option : {"--mount-cred", "--cred", "--mount-cred-file-text"}) {
        flags = {option, "s3cret"};
        expect_refusal(std::string("unknown option: ") + option + "\n");
        flags = {std::string(option) + "=s3cret"};
        expect_refusal(std::string("unknown option: ") + option + "\n");
    }
}

TEST_F(PrepareCredentials, MissingFileIsNamed)
{
    options["unmount-cred-file"] = folder / "absent";
    expect_refusal(folder / "absent: No such file or directory");
}

TEST_F(PrepareCredentials, FolderIsNotReadable)
{
    options["mount-cred-file"] = folder.path();
    expect_refusal(folder.path() + ": cannot be read");
}

TEST_F(PrepareCredentials, EmptyFileHoldsNone)
{
    use_mount_credential("");
    expect_refusal(folder / "mount: credential is missing");
}

TEST_F(PrepareCredentials, FileOfTwoLinesIsRefused)
{
    use_mount_credential("s3cret\ns3cret\n");
    expect_refusal("must hold the credential alone, on one line");
}

TEST_F(PrepareCredentials, SecondLineOfStandardInputIsWanted)
{
    use_standard_input();
    expect_refusal("standard input, line 2: credential is missing", {"s3cret\n"});
}

TEST_F(PrepareCredentials, ClosedStandardInputHoldsNone)
{
    use_standard_input();
    const ProgramResult result = run_redirected("<&-");
    EXPECT_EQ(result.exit_status, bad_usage);
    EXPECT_THAT(result.errors, HasSubstr("standard input, line 1: "));
}

class PrepareCredentialsRefuse : public PrepareCredentials,
                                 public testing::WithParamInterface<std::string>
{
};

TEST_P(PrepareCredentialsRefuse, Mount)
{
    use_mount_credential(GetParam() + "\n");
    expect_refusal("ixfs-prepare: mount credential: ");
}

TEST_P(PrepareCredentialsRefuse, Unmount)
{
    use_unmount_credential(GetParam() + "\n");
    expect_refusal("ixfs-prepare: unmount credential: ");
}

INSTANTIATE_TEST_SUITE_P(Dangerous, PrepareCredentialsRefuse,
                         testing::Values("", "-s3cret", "s3cret s3cret", "s3cret;", "'s3cret'",
                                         "$s3cret", "s3cret\r", "s3cret\t",
                                         std::string("s3cret\0s3cret", 13), "s3cret\xc3\xa9"));

// The bound of 900 bytes is for the server name twice and the credential once.
TEST_F(PrepareCredentials, LongestTakenKeepsTheCommandWhole)
{
    options["server"] = std::string(255, 's');
    use_mount_credential(std::string(390, 'c') + "\n");
    const ScriptedHelper::Arguments arguments = run_up_to_helper();
    ASSERT_THAT(arguments, Contains(std::string(390, 'c')));
    EXPECT_EQ(arguments.back(), "/usr/varnis/var/ixfs/" + options["server"]);
}

TEST_F(PrepareCredentials, OneByteMoreIsRefused)
{
    options["server"] = std::string(255, 's');
    use_unmount_credential(std::string(391, 'c') + "\n");
    expect_refusal("unmount credential: server name and credential are too long");
}

TEST_F(PrepareCredentials, AreMaskedInLogLines)
{
    provide_image();
    const ProgramResult result = run();
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_THAT(result.errors, Not(HasSubstr("mount-secret")));
    EXPECT_THAT(result.errors,
                HasSubstr(" mount -server media1 -port 4010 -timeout 60  -cred *** "));
    EXPECT_THAT(result.errors, HasSubstr(" umount -f -server media1 -port 4010 -cred *** "));
}

TEST_F(PrepareCredentials, NeverStandInTheProgramsArguments)
{
    helper.does("for process in /proc/[0-9]*; do\n"
                "    [ \"$(cat $process/comm)\" = ixfs-prepare ] || continue\n"
                "    tr '\\0' '\\n' < $process/cmdline >> '" +
                (folder / "arguments") + "'\ndone 2> /dev/null");
    provide_image();
    use_standard_input();
    EXPECT_EQ(run({"first-s3cret\nsecond-s3cret\n"}).exit_status, 0);
    const std::string arguments = folder.read("arguments");
    EXPECT_THAT(arguments, HasSubstr("--server=media1\n"));
    EXPECT_THAT(arguments, Not(HasSubstr("s3cret")));
}

} // namespace
