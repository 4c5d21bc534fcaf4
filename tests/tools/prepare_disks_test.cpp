// The disks of ixfs-prepare: where they come from, and which are refused before anything is
// mounted.
#include "prepare_test.h"

using testing::HasSubstr;

namespace
{

constexpr char other_disk[] = "[other] backups/client/allusers/full/7/vm/second.vmdk.desc";

class PrepareDisks : public PrepareTest
{
protected:
    // What a dry run says of the disks.
    std::string planned(const Streams& streams = {})
    {
        flags.emplace_back("--dry-run");
        const ProgramResult result = run(streams);
        EXPECT_EQ(result.exit_status, 0) << result.errors;
        return result.output;
    }

    void use_list(const std::string& bytes)
    {
        folder.write("list", bytes);
        options["disks-from"] = folder / "list";
    }
};

TEST_F(PrepareDisks, ComeFromAFile)
{
    options.erase("disk");
    use_list("\xef\xbb\xbf" + disk + "\r\n\n\r\n" + other_disk);
    const std::string plan = planned();
    EXPECT_THAT(plan, HasSubstr(" " + disk + "\n"));
    EXPECT_THAT(plan, HasSubstr(std::string(" ") + other_disk + "\n"));
}

TEST_F(PrepareDisks, ComeFromStandardInput)
{
    options["disks-from"] = "-";
    EXPECT_THAT(planned({other_disk}), HasSubstr(other_disk));
}

TEST_F(PrepareDisks, OfTheListStandBehindThoseOfTheCommandLine)
{
    use_list(other_disk);
    const std::string plan = planned();
    EXPECT_LT(plan.find(disk), plan.find(other_disk));
}

TEST_F(PrepareDisks, OfTheListArePrepared)
{
    provide_image();
    options.erase("disk");
    use_list(disk + "\n");
    EXPECT_EQ(run().exit_status, 0);
    EXPECT_NE(read_view_file("disk.vmdk"), "");
}

TEST_F(PrepareDisks, StandardInputIsOneThingOnly)
{
    options["disks-from"] = "-";
    use_standard_input();
    expect_refusal("standard input can be one thing only");
    flags = {"--from=-"};
    expect_refusal("standard input can be one thing only");
}

TEST_F(PrepareDisks, MissingListIsNamed)
{
    options["disks-from"] = folder / "absent";
    expect_refusal(folder / "absent: No such file or directory");
}

TEST_F(PrepareDisks, EmptyListIsRefused)
{
    options.erase("disk");
    use_list("\n");
    expect_refusal(folder / "list: holds no disk");
}

TEST_F(PrepareDisks, MalformedLineIsNamed)
{
    use_list("\n" + std::string(other_disk) + "\n[s] none\n");
    expect_refusal(folder / "list, line 3 (\"[s] none\"): has no \"backups\"");
}

TEST_F(PrepareDisks, NulOfAListIsRefused)
{
    use_list(std::string("[s] backups/a\0b.vmdk.desc", 25));
    expect_refusal("line 1 (\"[s] backups/a\\x00b.vmdk.desc\"): must not hold a NUL");
}

TEST_F(PrepareDisks, SecondValueIsToldToRepeatTheOption)
{
    for (const std::vector<std::string>& two :
         {std::vector<std::string>{"--disk", other_disk, "s3cret"},
          {"--disk=" + std::string(other_disk), "s3cret"}}) {
        flags = two;
        expect_refusal("repeat --disk");
    }
}

TEST_F(PrepareDisks, ArgumentElsewhereIsNotTakenForADisk)
{
    flags = {"--disk", other_disk, "--json", "s3cret"};
    expect_refusal("an argument was not expected");
}

TEST_F(PrepareDisks, ControlCharactersAreShownAsText)
{
    options["disk"] = "\x1b[2Ja";
    expect_refusal("disk 1 (\"\\x1b[2Ja\"): has no \"[<datastore>]\"");
}

struct SameFile {
    const char* name;
    const char* disk;
};

void PrintTo(const SameFile& same, std::ostream* stream)
{
    *stream << same.name;
}

class PrepareDisksRefuse : public PrepareDisks, public testing::WithParamInterface<SameFile>
{
};

TEST_P(PrepareDisksRefuse, SameFile)
{
    flags = {"--disk", other_disk, "--disk", GetParam().disk};
    expect_refusal("disk 3 (\"" + std::string(GetParam().disk) +
                   "\"): is the same file as disk 1; the disks would share their data");
}

INSTANTIATE_TEST_SUITE_P(
    Named, PrepareDisksRefuse,
    testing::Values(
        SameFile{"alike", "[store] backups/client/allusers/full/7/vm/disk.vmdk.desc"},
        SameFile{"inAnotherDatastore", "[b] backups/client/allusers/full/7/vm/disk.vmdk.desc"},
        SameFile{"withSomethingInFront", "[s] /x/backups/client/allusers/full/7/vm/disk.vmdk.desc"},
        SameFile{"withEmptySegments", "[s] backups//client/allusers/full/7///vm/disk.vmdk.desc"},
        SameFile{"withDots", "[s] backups/./client/allusers/full/7/vm/././disk.vmdk.desc"},
        SameFile{"byItsDataAlone", "[s] backups/client/allusers/full/7/vm/disk.vmdk.desc2"}),
    [](const auto& test) { return test.param.name; });

TEST_F(PrepareDisks, OfOneNameInTwoFoldersAreTwo)
{
    flags = {"--disk", "[store] backups/client/allusers/full/7/vm2/disk.vmdk.desc"};
    EXPECT_THAT(planned(), HasSubstr("/_vmir/disk(1).vmdk\n"));
}

TEST_F(PrepareDisks, InTheViewIsRefused)
{
    options["disk"] = "[s] backups/client//allusers/full/7/_vmir/disk.vmdk.desc";
    expect_refusal("lies in the view folder");
}

TEST_F(PrepareDisks, WhoseDataWouldBeAnothersDescriptorIsRefused)
{
    flags = {"--disk", "[s] backups/x/disk-flat.vmdk.desc"};
    expect_refusal("disk 1 (\"" + disk +
                   "\"): its data would have the name of the descriptor of disk 2 in the view");
}

} // namespace
