// The command line of ixfs-prepare: what it asks for, what it refuses, what reaches the helper.
#include "prepare_test.h"

#include <algorithm>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::Not;

namespace
{

class PrepareUsage : public PrepareTest
{
};

// The options that a text holds behind something that is as the expression `front` says.
std::set<std::string> options_in(const std::string& text, const std::string& front)
{
    const std::regex option(front + "(--[a-z-]+)");
    std::set<std::string> found;
    for (std::sregex_iterator match(text.begin(), text.end(), option), end; match != end; ++match)
        found.insert((*match)[1]);
    return found;
}

TEST_F(PrepareUsage, HelpTellsOptionsAndExitStatuses)
{
    const ProgramResult result = run_program({IXFS_PREPARE_PROGRAM, "--help"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.errors, "");
    for (const char* option : {"--server",
                               "--port",
                               "--schedule",
                               "--timeout",
                               "--backup-id",
                               "--disk",
                               "--disks-from",
                               "--new-disk-uuids",
                               "--mount-cred-file",
                               "--unmount-cred-file",
                               "--creds-stdin",
                               "--from",
                               "--jobs",
                               "--dry-run",
                               "--remove-view",
                               "--yes",
                               "--json",
                               "--quiet",
                               "--log-format",
                               "--no-timestamps",
                               "--help",
                               "--version"})
        EXPECT_THAT(result.output, HasSubstr(std::string(option) + " "));
    for (const char* status : {"  0 ", "  1 ", "  2 ", "  3 ", "  129, 130, 143 "})
        EXPECT_THAT(result.output, HasSubstr(std::string("\n") + status));
}

TEST_F(PrepareUsage, HelpFitsInto80Columns)
{
    const ProgramResult result = run_program({IXFS_PREPARE_PROGRAM, "--help"});
    std::size_t longest = 0;
    for (const std::string& line : lines_of(std::istringstream(result.output)))
        longest = std::max(longest, line.size());
    EXPECT_LE(longest, 80U);
    EXPECT_GT(longest, 70U); // and uses them
}

// Every option that --help names, and no other, is in a table of the page.
TEST_F(PrepareUsage, PageTellsTheOptionsOfHelp)
{
    const std::string help = run_program({IXFS_PREPARE_PROGRAM, "--help"}).output;
    std::ifstream page(IXFS_PREPARE_PAGE);
    std::string tables;
    for (const std::string& line : lines_of(std::move(page))) {
        if (line.rfind("| `--", 0) == 0)
            tables += line + "\n";
    }
    EXPECT_EQ(options_in(tables, "`"), options_in(help, "\n(?:  |  -h,)"));
}

TEST_F(PrepareUsage, VersionIsTheProjects)
{
    const ProgramResult result = run_program({IXFS_PREPARE_PROGRAM, "--version"});
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.output, "ixfs-prepare " IXFS_PREPARE_VERSION "\n");
    EXPECT_EQ(result.errors, "");
}

TEST_F(PrepareUsage, UnknownOptionIsNamed)
{
    flags = {"--frobnicate=1"};
    expect_refusal("unknown option: --frobnicate\n");
}

TEST_F(PrepareUsage, LooseArgumentIsRefusedUnseen)
{
    flags = {"loose-s3cret"};
    expect_refusal("an argument was not expected");
}

TEST_F(PrepareUsage, RepeatedServerIsRefused)
{
    flags = {"--server", "media2"};
    expect_refusal("--server");
}

TEST_F(PrepareUsage, UsageErrorsLeaveJsonOutputEmpty)
{
    options["port"] = "0";
    flags = {"--json"};
    expect_refusal("--port");
}

class PrepareRequires : public PrepareUsage, public testing::WithParamInterface<const char*>
{
};

TEST_P(PrepareRequires, Option)
{
    options.erase(GetParam());
    expect_refusal(std::string("--") + GetParam());
}

INSTANTIATE_TEST_SUITE_P(Each, PrepareRequires,
                         testing::Values("server", "port", "schedule", "backup-id", "disk"));

struct RefusedValue {
    std::string option;
    std::string value;
    std::string message;
};

void PrintTo(const RefusedValue& refused, std::ostream* stream)
{
    *stream << "--" << refused.option << " \"" << refused.value << '"';
}

class PrepareRefuses : public PrepareUsage, public testing::WithParamInterface<RefusedValue>
{
};

TEST_P(PrepareRefuses, Value)
{
    options[GetParam().option] = GetParam().value;
    expect_refusal("--" + GetParam().option + ": " + GetParam().message);
}

constexpr char characters[] = "only letters, digits and ._:=+/@%- are allowed";
constexpr char one_segment[] = "must not be \".\" or \"..\" or hold a \"/\"";
constexpr char no_equals_sign[] = "must not hold a \"=\"";
constexpr char client_and_time[] = "must be \"<client>_<time>\"";
constexpr char parent_segment[] = "must not hold a \"..\" segment";
constexpr char port_range[] = "must be a whole number from 1 to 65535";
constexpr char timeout_range[] = "must be a whole number from 0 to 4294967295";

INSTANTIATE_TEST_SUITE_P(
    ServerForTheShell, PrepareRefuses,
    testing::Values(
        RefusedValue{"server", "a b", characters}, RefusedValue{"server", "a;b", characters},
        RefusedValue{"server", "a\nb", characters}, RefusedValue{"server", "$(a)", characters},
        RefusedValue{"server", "`a`", characters}, RefusedValue{"server", "~", characters},
        RefusedValue{"server", "a*", characters}, RefusedValue{"server", "m\u00e9dia", characters},
        RefusedValue{"server", "-a", "must not begin with \"-\""}));
INSTANTIATE_TEST_SUITE_P(ServerForADirectory, PrepareRefuses,
                         testing::Values(RefusedValue{"server", "", "must not be empty"},
                                         RefusedValue{"server", ".", one_segment},
                                         RefusedValue{"server", "..", one_segment},
                                         RefusedValue{"server", "../a", one_segment},
                                         RefusedValue{"server", "/", one_segment},
                                         RefusedValue{"server", "media1=data", no_equals_sign},
                                         RefusedValue{"server", "=", no_equals_sign},
                                         RefusedValue{"server", "media1=", no_equals_sign},
                                         RefusedValue{"server", std::string(256, 'a'),
                                                      "is longer than"}));
INSTANTIATE_TEST_SUITE_P(Numbers, PrepareRefuses,
                         testing::Values(RefusedValue{"port", "0", port_range},
                                         RefusedValue{"port", "65536", port_range},
                                         RefusedValue{"port", "-1", port_range},
                                         RefusedValue{"port", "0x10", port_range},
                                         RefusedValue{"port", " 1", port_range},
                                         RefusedValue{"port", "1 ", port_range},
                                         RefusedValue{"port", "", port_range},
                                         RefusedValue{"timeout", "-1", timeout_range},
                                         RefusedValue{"timeout", "5;true", timeout_range},
                                         RefusedValue{"timeout", "4294967296", timeout_range},
                                         RefusedValue{"timeout", "", timeout_range}));
INSTANTIATE_TEST_SUITE_P(
    Others, PrepareRefuses,
    testing::Values(RefusedValue{"schedule", "Full", "Full not in {"},
                    RefusedValue{"log-format", "xml", "xml not in {"},
                    RefusedValue{"jobs", "0", "must be a whole number from 1 to 1000"},
                    RefusedValue{"backup-id", "", "must not be empty"},
                    RefusedValue{"backup-id", "../client_7", "must not hold a \"/\""},
                    RefusedValue{"backup-id", "client", client_and_time},
                    RefusedValue{"backup-id", "_7", client_and_time},
                    RefusedValue{"backup-id", "client_", client_and_time},
                    RefusedValue{"backup-id", "client_x7", client_and_time},
                    RefusedValue{"backup-id", "client_9223372036854775808", client_and_time},
                    RefusedValue{"backup-id", "._7", "must not have \".\""},
                    RefusedValue{"backup-id", ".._7", "must not have \".\""}));

struct RefusedDisk {
    std::string disk;
    std::string message;
};

void PrintTo(const RefusedDisk& refused, std::ostream* stream)
{
    *stream << '"' << refused.disk << '"';
}

class PrepareRefusesDisk : public PrepareUsage, public testing::WithParamInterface<RefusedDisk>
{
};

TEST_P(PrepareRefusesDisk, NamingIt)
{
    flags = {"--disk", GetParam().disk};
    expect_refusal("disk 2 (\"" + GetParam().disk + "\"): " + GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Malformed, PrepareRefusesDisk,
    testing::Values(RefusedDisk{"", "must not be empty"}, RefusedDisk{"..", parent_segment},
                    RefusedDisk{"[s] backups/../x.vmdk.desc", parent_segment},
                    RefusedDisk{"[s] ../backups/x.vmdk.desc", parent_segment},
                    RefusedDisk{"[s]../backups/x.vmdk.desc", parent_segment},
                    RefusedDisk{"../[s] backups/x.vmdk.desc", parent_segment},
                    RefusedDisk{"s backups/x.vmdk.desc", "has no \"[<datastore>]\""},
                    RefusedDisk{"[a,b]", "has no \"backups\" behind"},
                    RefusedDisk{"[backups] x.vmdk.desc", "has no \"backups\" behind"},
                    RefusedDisk{"[s] backups/x.vmdk", "its last part does not end in"},
                    RefusedDisk{"[s] backups/x.vmdk.desc/x", "its last part does not end in"},
                    RefusedDisk{"[s] backups/x.desc", "its last part does not end in"}));

TEST_F(PrepareUsage, JobsAreForAListAlone)
{
    flags = {"--jobs=2"};
    expect_refusal("--jobs requires --from");
}

TEST_F(PrepareUsage, EveryAllowedCharacterReachesTheHelper)
{
    options["server"] = "azAZ09._:+@%-";
    use_mount_credential("azAZ09._:=+/@%-\n");
    EXPECT_THAT(run_up_to_helper(),
                ElementsAre("mount", "-server", "azAZ09._:+@%-", "-port", "4010", "-timeout", "60",
                            "-cred", "azAZ09._:=+/@%-", "/usr/varnis/var/ixfs/azAZ09._:+@%-"));
}

TEST_F(PrepareUsage, PortsAtBothEndsAreTaken)
{
    for (const char* port : {"1", "65535"}) {
        options["port"] = port;
        EXPECT_THAT(run_up_to_helper(), Contains(port));
    }
}

TEST_F(PrepareUsage, TimeoutAbove60IsTakenAs60)
{
    options["timeout"] = "4294967295";
    EXPECT_THAT(run_up_to_helper(), IsSupersetOf({"-timeout", "60"}));
}

TEST_F(PrepareUsage, TimeoutIsDecimalWithLeadingZerosToo)
{
    options["timeout"] = "010";
    EXPECT_THAT(run_up_to_helper(), IsSupersetOf({"-timeout", "10"}));
}

TEST_F(PrepareUsage, TimeoutZeroIsNotPassedOn)
{
    options["timeout"] = "0";
    EXPECT_THAT(run_up_to_helper(), Not(Contains("-timeout")));
}

} // namespace
