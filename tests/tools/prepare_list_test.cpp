// The list of VMs of ixfs-prepare --from: what a line may hold, and which lines are refused before
// anything is mounted.
#include "prepare_test.h"

#include <nlohmann/json.hpp>

#include <filesystem>
#include <sstream>

using nlohmann::json;
using std::filesystem::permissions;
using std::filesystem::perms;
using testing::HasSubstr;

namespace
{

class PrepareList : public PrepareTest
{
protected:
    PrepareList() { flags = {"--dry-run"}; }

    // A list that only its owner can read.
    void use_list(const std::string& bytes)
    {
        folder.write("list", bytes);
        permissions(folder / "list", perms::owner_read);
        options["from"] = folder / "list";
    }

    // The dry run's lines.
    std::vector<json> planned(const Streams& streams = {})
    {
        const ProgramResult result = run(streams);
        EXPECT_EQ(result.exit_status, 0) << result.errors;
        std::vector<json> lines;
        for (const std::string& line : lines_of(std::istringstream(result.output)))
            lines.push_back(json::parse(line));
        return lines;
    }

    void expect_refused_line(const std::string& line, const std::string& what)
    {
        use_list("{}\n\n" + line + "\n");
        expect_refusal(folder / ("list, line 3: " + what));
    }

    static json complete_line()
    {
        return {{"server", "media2"},
                {"port", 4711},
                {"schedule", "incr"},
                {"backup_id", "other_8"},
                {"disks", {"[b] backups/b.vmdk.desc"}},
                {"new_disk_uuids", true},
                {"timeout", 0},
                {"mount_cred", "first-s3cret"},
                {"unmount_cred", "second-s3cret"}};
    }
};

TEST_F(PrepareList, LineCanSayAll)
{
    options.clear();
    use_list(complete_line().dump());
    const std::vector<json> plans = planned();
    ASSERT_EQ(plans.size(), 1U);
    EXPECT_EQ(plans[0]["server"], "media2");
    EXPECT_EQ(plans[0]["port"], 4711);
    EXPECT_EQ(plans[0]["schedule"], "incr");
    EXPECT_EQ(plans[0]["backup_id"], "other_8");
    EXPECT_EQ(plans[0]["disks"][0]["disk"], "[b] backups/b.vmdk.desc");
}

TEST_F(PrepareList, CommandLineSaysWhatALineLeavesOut)
{
    use_list("{\"port\": 1}\r\n\n{\"server\": \"media2\"}");
    const std::vector<json> plans = planned();
    ASSERT_EQ(plans.size(), 2U);
    EXPECT_EQ(plans[0]["server"], "media1");
    EXPECT_EQ(plans[0]["port"], 1);
    EXPECT_EQ(plans[1]["server"], "media2");
    EXPECT_EQ(plans[1]["port"], 4010);
    EXPECT_EQ(plans[1]["disks"][0]["disk"], disk);
}

TEST_F(PrepareList, ComesFromStandardInput)
{
    options["from"] = "-";
    EXPECT_EQ(planned({"{}\n"}).size(), 1U);
    expect_refusal("standard input, line 2: unknown member", {"{}\n{\"a\": 1}"});
}

TEST_F(PrepareList, FilesOfCredentialsCanDifferByLine)
{
    options.erase("mount-cred-file");
    options.erase("unmount-cred-file");
    const json files = {{"mount_cred_file", folder / "mount"},
                        {"unmount_cred_file", folder / "unmount"}};
    use_list(files.dump());
    EXPECT_EQ(planned().size(), 1U);
    use_list("{}");
    expect_refusal("line 1: mount_cred_file or mount_cred is missing");
    folder.write("mount", "s3cret;");
    use_list(files.dump());
    expect_refusal("line 1: mount credential: only letters");
}

TEST_F(PrepareList, CredentialsInItMustNotBeReadableByAll)
{
    use_list(complete_line().dump());
    permissions(folder / "list", perms::owner_read | perms::others_read);
    expect_refusal("run chmod o-r");
    folder.write("list", "{}"); // without credentials all may read it
    EXPECT_EQ(planned().size(), 1U);
}

class PrepareListRequires : public PrepareList, public testing::WithParamInterface<const char*>
{
};

TEST_P(PrepareListRequires, Member)
{
    options.clear();
    json line = complete_line();
    line.erase(GetParam());
    use_list(line.dump());
    expect_refusal("line 1: " + std::string(GetParam()) + " is missing");
}

INSTANTIATE_TEST_SUITE_P(Each, PrepareListRequires,
                         testing::Values("server", "port", "schedule", "backup_id", "disks"));

struct RefusedLine {
    const char* line;
    const char* message;
};

void PrintTo(const RefusedLine& refused, std::ostream* stream)
{
    *stream << refused.line;
}

class PrepareListRefuses : public PrepareList, public testing::WithParamInterface<RefusedLine>
{
};

TEST_P(PrepareListRefuses, Line)
{
    expect_refused_line(GetParam().line, GetParam().message);
}

constexpr char no_object[] = "is no JSON object";
constexpr char port_member_range[] = "port: must be a whole number from 1 to 65535";
constexpr char timeout_member_range[] = "timeout: must be a whole number from 0 to 4294967295";

INSTANTIATE_TEST_SUITE_P(NoObject, PrepareListRefuses,
                         testing::Values(RefusedLine{"s3cret", no_object},
                                         RefusedLine{"[]", no_object},
                                         RefusedLine{"{} {}", no_object},
                                         RefusedLine{R"({"mount_cred": "s3cret)", no_object},
                                         RefusedLine{"null", no_object},
                                         RefusedLine{"{\"server\": \"\xff\"}", no_object}));
INSTANTIATE_TEST_SUITE_P(
    Member, PrepareListRefuses,
    testing::Values(
        RefusedLine{R"({"sever": "a"})", "unknown member \"sever\""},
        RefusedLine{R"({"\u001b": "a"})", "unknown member \"\\x1b\""},
        RefusedLine{R"({"server": 1})", "server: must be a string"},
        RefusedLine{R"({"server": "a b"})", "server: only letters"},
        RefusedLine{R"({"server": "a/b"})", "server: must not be"},
        RefusedLine{R"({"server": "a", "server": "b"})", "has a member twice"},
        RefusedLine{R"({"port": 0})", port_member_range},
        RefusedLine{R"({"port": 65536})", port_member_range},
        RefusedLine{R"({"port": 18446744073709551615})", port_member_range},
        RefusedLine{R"({"port": 1.0})", port_member_range},
        RefusedLine{R"({"port": -1})", port_member_range},
        RefusedLine{R"({"port": "1"})", port_member_range},
        RefusedLine{R"({"timeout": -1})", timeout_member_range},
        RefusedLine{R"({"timeout": 4294967296})", timeout_member_range},
        RefusedLine{R"({"schedule": "Full"})", R"(schedule: must be "full" or "incr")"},
        RefusedLine{R"({"backup_id": "client"})", "backup_id: must be \"<client>_<time>\""},
        RefusedLine{R"({"backup_id": "a\u0000_7"})", "backup_id: must not hold"},
        RefusedLine{R"({"new_disk_uuids": 1})", "new_disk_uuids: must be true or false"},
        RefusedLine{R"({"disks": "[s] backups/a.vmdk.desc"})", "disks: must be an array"},
        RefusedLine{R"({"disks": []})", "disks: must be an array of strings, and not empty"},
        RefusedLine{R"({"disks": [1]})", "disks: must be a string"},
        RefusedLine{R"({"disks": ["[s] backups/a.vmdk.desc", "a"]})", "disk 2 (\"a\"): has no"}));
INSTANTIATE_TEST_SUITE_P(
    Credentials, PrepareListRefuses,
    testing::Values(
        RefusedLine{R"({"mount_cred": "s3cret"})", "mount_cred and unmount_cred must be"},
        RefusedLine{R"({"unmount_cred_file": "a"})", "mount_cred_file and unmount_cred_file must"},
        RefusedLine{R"({"mount_cred": "s3cret", "unmount_cred": "s3cret", )"
                    R"("mount_cred_file": "a", "unmount_cred_file": "b"})",
                    "credentials must be given in files or in the line"},
        RefusedLine{R"({"mount_cred": "a", "unmount_cred": "s3cret s3cret"})",
                    "unmount credential: only letters"},
        RefusedLine{R"({"mount_cred_file": "/absent", "unmount_cred_file": "/absent"})",
                    "/absent: No such file"}));

TEST_F(PrepareList, SameImageTwiceIsRefused)
{
    use_list("{}\n{\"backup_id\": \"client_+07\"}\n");
    expect_refusal((folder / "list, line 2: the same image as ") + (folder / "list, line 1; both"));
}

TEST_F(PrepareList, ImagesOfOtherServersAndSchedulesAreOthers)
{
    use_list(
        "{}\n{\"server\": \"media2\"}\n{\"schedule\": \"incr\"}\n{\"backup_id\": \"client_8\"}");
    EXPECT_EQ(planned().size(), 4U);
}

TEST_F(PrepareList, DefaultDisksAreNamedByTheirList)
{
    folder.write("disks", "\nnone\n");
    options["disks-from"] = folder / "disks";
    use_list("{}");
    expect_refusal((folder / "list, line 1: ") + (folder / "disks, line 2 (\"none\"): has no"));
}

TEST_F(PrepareList, EmptyOneIsRefused)
{
    use_list("\n");
    expect_refusal(folder / "list: holds no VM");
}

TEST_F(PrepareList, MissingOneIsNamed)
{
    options["from"] = folder / "absent";
    expect_refusal(folder / "absent: No such file or directory");
}

// The good lines in front of a bad one are not prepared.
TEST_F(PrepareList, IsCheckedWholeBeforeAnythingIsMounted)
{
    provide_image();
    flags = {};
    expect_refused_line(R"({"port": 0})", "port: ");
}

} // namespace
