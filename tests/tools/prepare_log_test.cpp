// The log lines of ixfs-prepare on standard error.
#include "prepare_test.h"

#include <nlohmann/json.hpp>

#include <csignal>
#include <set>
#include <sstream>

using nlohmann::json;
using testing::Contains;
using testing::Each;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

namespace
{

class PrepareLog : public PrepareTest
{
protected:
    std::vector<std::string> logged_lines() const
    {
        return lines_of(std::istringstream(run().errors));
    }
};

TEST_F(PrepareLog, LinesCarrySeverityAndTag)
{
    provide_image();
    flags = {"--no-timestamps"};
    const std::vector<std::string> lines = logged_lines();
    EXPECT_THAT(lines, Each(MatchesRegex("(ERR|WRN|INF) [A-Za-z_]+(\\(\\))?: .+")));
    EXPECT_THAT(lines, Contains("INF ixfs_mount(): INF - waiting for mount mutex..."));
    EXPECT_THAT(lines, Contains(StartsWith("INF readXml: INF - Read file size: 6")));
}

TEST_F(PrepareLog, LinesBeginWithTheTime)
{
    provide_image();
    const std::vector<std::string> lines = logged_lines();
    EXPECT_THAT(lines, SizeIs(testing::Gt(5U)));
    EXPECT_THAT(lines, Each(MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}"
                                         "\\.[0-9]{3}(Z|[+-][0-9]{2}:[0-9]{2}) "
                                         "(ERR|WRN|INF) [A-Za-z_]+(\\(\\))?: .+")));
}

TEST_F(PrepareLog, LinesCanBeJson)
{
    provide_image();
    flags = {"--log-format=json"};
    std::set<std::string> messages;
    for (const std::string& line : logged_lines()) {
        const json object = json::parse(line);
        EXPECT_EQ(object["server"], "media1");
        EXPECT_EQ(object["backup_id"], "client_7");
        EXPECT_TRUE(object.contains("time"));
        messages.insert(object["message"].get<std::string>());
    }
    EXPECT_THAT(messages, Contains("INF - waiting for mount mutex..."));
}

TEST_F(PrepareLog, JsonTellsTheFailureToo)
{
    flags = {"--log-format=json", "--no-timestamps", "--quiet"};
    const std::vector<std::string> lines = logged_lines();
    ASSERT_FALSE(lines.empty());
    const json last = json::parse(lines.back());
    EXPECT_EQ(last["severity"], "ERR");
    EXPECT_EQ(last["tag"], "ixfs-prepare");
    EXPECT_THAT(last["message"].get<std::string>(),
                StartsWith("failed with status 11: system call failed"));
    EXPECT_FALSE(last.contains("time"));
}

TEST_F(PrepareLog, QuietIsQuietOnSuccess)
{
    provide_image();
    flags = {"--quiet"};
    const ProgramResult result = run();
    EXPECT_EQ(result.exit_status, 0);
    EXPECT_EQ(result.errors, "");
}

TEST_F(PrepareLog, QuietStillTellsTheFailure)
{
    flags = {"--quiet", "--no-timestamps"};
    const std::vector<std::string> lines = logged_lines();
    ASSERT_THAT(lines, SizeIs(testing::Ge(2U)));
    EXPECT_EQ(lines[0], "ERR ixfs_mount(): ERR - nothing is mounted");
    EXPECT_EQ(lines[1], "ixfs-prepare: failed with status 11: system call failed");
}

TEST_F(PrepareLog, HelperOutputCannotSteerATerminal)
{
    helper.answers({{"a\rb\x1b[2J\x7f\tc", "\xc3\xa9"}});
    const std::string errors = run().errors;
    EXPECT_THAT(errors, HasSubstr("response - a\\x0db\\x1b[2J\\x7f\tc\n"));
    EXPECT_THAT(errors, HasSubstr("response - \xc3\xa9\n"));
    EXPECT_THAT(errors, Not(HasSubstr("\x1b")));
}

TEST_F(PrepareLog, ReaderThatGoesAwayDoesNotEndThePreparation)
{
    provide_image();
    const BrokenPipe pipe;
    EXPECT_EQ(run({"", -1, pipe.descriptor()}).exit_status, 0);
    EXPECT_THAT(helper.runs(), testing::SizeIs(2)); // mounted and unmounted
}

TEST_F(PrepareLog, ClosedStandardErrorIsNotLeftForOtherFiles)
{
    provide_image();
    helper.does("readlink /proc/$$/fd/2 > '" + (folder / "errors") + "'");
    EXPECT_EQ(run_redirected("2>&-").exit_status, 0);
    EXPECT_THAT(folder.read("errors"), StartsWith("pipe:["));
}

TEST_F(PrepareLog, HelperGetsTheUsualSigpipe)
{
    provide_image();
    helper.does("sed -n 's/^SigIgn:.//p' /proc/$$/status > '" + (folder / "ignored") + "'");
    EXPECT_EQ(run().exit_status, 0);
    const unsigned long long ignored = std::stoull(folder.read("ignored"), nullptr, 16);
    EXPECT_EQ(ignored & (1ULL << (SIGPIPE - 1)), 0U);
}

} // namespace
